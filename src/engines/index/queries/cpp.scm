; C++'s own, before the patterns it shares with C (c.scm).

; Definitions. A function written in a class body is a method.
(field_declaration_list
  (function_definition
    declarator: (function_declarator
      declarator: [(field_identifier) (identifier) (destructor_name) (operator_name)] @name))
  @definition.method)
(field_declaration_list
  (template_declaration
    (function_definition
      declarator: (function_declarator
        declarator: [(field_identifier) (identifier) (destructor_name) (operator_name)] @name))
    @definition.method))
(field_declaration_list
  (field_declaration
    declarator: (function_declarator
      declarator: [(field_identifier) (destructor_name) (operator_name)] @name))
  @definition.method)

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
    (pointer_declarator declarator: (function_declarator declarator: (qualified_identifier
      scope: (_) @scope
      name: [(identifier) (destructor_name) (operator_name)] @name)))
    (reference_declarator (function_declarator declarator: (qualified_identifier
      scope: (_) @scope
      name: [(identifier) (destructor_name) (operator_name)] @name)))
  ]) @definition.method

(function_definition
  declarator: (reference_declarator (function_declarator declarator: (identifier) @name)))
  @definition.function

(class_specifier name: [(type_identifier) @name
                        (qualified_identifier name: (type_identifier) @name)] body: (_)) @definition.class
(struct_specifier name: (qualified_identifier name: (type_identifier) @name) body: (_)) @definition.struct
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
