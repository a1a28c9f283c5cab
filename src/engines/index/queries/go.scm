; Definitions.
(function_declaration name: (identifier) @name) @definition.function

; A method's scope is its receiver's type.
(method_declaration
  receiver: (parameter_list
    (parameter_declaration
      type: [(type_identifier) @scope
             (pointer_type (type_identifier) @scope)
             (generic_type type: (type_identifier) @scope)
             (pointer_type (generic_type type: (type_identifier) @scope))]))
  name: (field_identifier) @name) @definition.method
(method_declaration name: (field_identifier) @name) @definition.method

(type_spec name: (type_identifier) @name type: (struct_type)) @definition.struct
(type_spec name: (type_identifier) @name type: (interface_type)) @definition.interface
(type_spec name: (type_identifier) @name) @definition.type
(type_alias name: (type_identifier) @name) @definition.type

(method_elem name: (field_identifier) @name) @definition.method

(const_spec name: (identifier) @name) @definition.constant
(source_file (var_declaration [(var_spec name: (identifier) @name) @definition.variable
                               (var_spec_list (var_spec name: (identifier) @name) @definition.variable)]))

; References.
(call_expression
  function: [
    (identifier) @name
    (parenthesized_expression (identifier) @name)
    (selector_expression field: (field_identifier) @name)
    (parenthesized_expression (selector_expression field: (field_identifier) @name))
    (generic_type type: [(type_identifier) @name (qualified_type name: (type_identifier) @name)])
    (index_expression operand: [(identifier) @name (selector_expression field: (field_identifier) @name)])
  ]) @reference.call

; Uses of types, less the predeclared ones, which no one looks up.
((type_identifier) @name @reference.type
  (#not-any-of? @name "bool" "byte" "complex64" "complex128" "error" "float32" "float64" "int"
    "int8" "int16" "int32" "int64" "rune" "string" "uint" "uint8" "uint16" "uint32" "uint64"
    "uintptr" "any" "comparable"))

(import_spec path: (interpreted_string_literal (interpreted_string_literal_content) @name) @reference.import)
