; JavaScript, TypeScript and TSX alike (every node named here is in all three grammars).

; Definitions.
(method_definition
  name: [(property_identifier) (private_property_identifier) (string) (computed_property_name)]
    @name) @definition.method

[(class name: (_) @name)
 (class_declaration name: (_) @name)] @definition.class

[(function_expression name: (identifier) @name)
 (function_declaration name: (identifier) @name)
 (generator_function name: (identifier) @name)
 (generator_function_declaration name: (identifier) @name)] @definition.function

(variable_declarator
  name: (identifier) @name
  value: [(arrow_function) (function_expression) (generator_function)]) @definition.function

; Foo.prototype.bar = ... gives every Foo a method bar, whatever the value.
(assignment_expression
  left: (member_expression
    object: (member_expression property: (property_identifier) @_prototype)
    property: (property_identifier) @name)
  (#eq? @_prototype "prototype")) @definition.method

(assignment_expression
  left: [(identifier) @name
         (member_expression property: (property_identifier) @name)]
  right: [(arrow_function) (function_expression) (generator_function)]) @definition.function

(pair
  key: [(property_identifier) @name (string (string_fragment) @name)]
  value: [(arrow_function) (function_expression) (generator_function)]) @definition.function

; Top-level constants and variables, exported or not.
(program [(lexical_declaration (variable_declarator name: (identifier) @name) @definition.variable)
          (variable_declaration (variable_declarator name: (identifier) @name) @definition.variable)])
(program (export_statement declaration: [
  (lexical_declaration (variable_declarator name: (identifier) @name) @definition.variable)
  (variable_declaration (variable_declarator name: (identifier) @name) @definition.variable)]))

; References. require("x") is an import, not a call.
(call_expression
  function: (identifier) @_require
  arguments: (arguments (string (string_fragment) @name @reference.import))
  (#eq? @_require "require"))

(call_expression
  function: [(identifier) @name
             (member_expression property: [(property_identifier) (private_property_identifier)] @name)]
  @reference.call
  (#not-eq? @name "require"))

(new_expression
  constructor: [(identifier) @name
                (member_expression property: (property_identifier) @name)] @reference.call)

(import_specifier name: (identifier) @name @reference.import)
(import_clause (identifier) @name @reference.import)
(namespace_import (identifier) @name @reference.import)
