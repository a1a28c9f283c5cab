; C++'s own, before the patterns it shares with C (c.scm).

; Definitions. A function written in a class body is a method; its declarator may sit under a
; pointer or reference declarator (`T& get()`).
(field_declaration_list
  [(function_definition declarator: [
     (function_declarator declarator: [(field_identifier) (identifier) (destructor_name) (operator_name)] @name)
     (_ (function_declarator declarator: [(field_identifier) (identifier) (operator_name)] @name))
     (_ (_ (function_declarator declarator: [(field_identifier) (identifier) (operator_name)] @name)))])
   (template_declaration (function_definition declarator: [
     (function_declarator declarator: [(field_identifier) (identifier) (destructor_name) (operator_name)] @name)
     (_ (function_declarator declarator: [(field_identifier) (identifier) (operator_name)] @name))]))
   (field_declaration declarator: [
     (function_declarator declarator: [(field_identifier) (destructor_name) (operator_name)] @name)
     (_ (function_declarator declarator: [(field_identifier) (operator_name)] @name))])]
  @definition.method)

; Member functions under a preprocessor conditional in a class body (their declarators name
; fields, which only a class has).
(function_definition
  declarator: [(function_declarator declarator: [(field_identifier) (destructor_name)] @name)
               (_ (function_declarator declarator: (field_identifier) @name))]) @definition.method

; Written outside its class: Foo::bar, whose scope is Foo.
(function_definition
  declarator: [
    (function_declarator declarator: (qualified_identifier
      scope: (_) @scope
      name: [(identifier) (destructor_name) (operator_name) (template_function)] @name))
    (function_declarator declarator: (qualified_identifier
      scope: (_) @scope
      name: (qualified_identifier
        name: [(identifier) (destructor_name) (operator_name)] @name)))
    (_ (function_declarator declarator: (qualified_identifier
      scope: (_) @scope
      name: [(identifier) (destructor_name) (operator_name)] @name)))
    (_ (_ (function_declarator declarator: (qualified_identifier
      scope: (_) @scope
      name: [(identifier) (destructor_name) (operator_name)] @name))))
  ]) @definition.method
(function_definition
  declarator: [(function_declarator declarator: (operator_name) @name)
               (_ (function_declarator declarator: (operator_name) @name))]) @definition.function

; A class whose head holds a macro (class API_EXPORT Name {...}) reads as a function named after
; the class, whose body is the class's.
(function_definition
  type: (class_specifier !body)
  declarator: (identifier) @name
  body: (_)) @definition.class
(function_definition
  type: (struct_specifier !body)
  declarator: (identifier) @name
  body: (_)) @definition.struct

; Specialisations (class Foo<int> {...}) are definitions of Foo too.
(class_specifier name: [(type_identifier) @name
                        (qualified_identifier name: (type_identifier) @name)
                        (template_type name: (type_identifier) @name)] body: (_)) @definition.class
(struct_specifier name: [(qualified_identifier name: (type_identifier) @name)
                         (template_type name: (type_identifier) @name)] body: (_)) @definition.struct
(namespace_definition name: [(namespace_identifier) @name (nested_namespace_specifier) @name])
  @definition.namespace
(alias_declaration name: (type_identifier) @name) @definition.type
(concept_definition name: (identifier) @name) @definition.type

; References.
(call_expression
  function: [
    (qualified_identifier name: [(identifier) @name
                                 (template_function name: (identifier) @name)])
    (template_function name: (identifier) @name)
    (field_expression field: [(field_identifier) @name
                              (template_method name: (field_identifier) @name)])
  ]) @reference.call

(new_expression type: [(type_identifier) @name
                       (qualified_identifier name: (type_identifier) @name)
                       (template_type name: (type_identifier) @name)]) @reference.call

(base_class_clause [(type_identifier) @name
                    (qualified_identifier name: (type_identifier) @name)
                    (template_type name: (type_identifier) @name)] @reference.inherit)
