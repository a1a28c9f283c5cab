; TypeScript's own, before the patterns it shares with JavaScript.

; Definitions.
(abstract_class_declaration name: (type_identifier) @name) @definition.class
(interface_declaration name: (type_identifier) @name) @definition.interface
(type_alias_declaration name: (type_identifier) @name) @definition.type
(enum_declaration name: (identifier) @name) @definition.enum
[(module name: [(identifier) (string) (nested_identifier)] @name)
 (internal_module name: [(identifier) (string) (nested_identifier)] @name)] @definition.namespace

[(method_signature name: (_) @name)
 (abstract_method_signature name: (_) @name)] @definition.method
(function_signature name: (identifier) @name) @definition.function
(construct_signature "new" @name) @definition.method

(public_field_definition
  name: (_) @name
  value: [(arrow_function) (function_expression)]) @definition.method

; References.
(type_annotation [(type_identifier) @name
                  (generic_type name: (type_identifier) @name)
                  (nested_type_identifier name: (type_identifier) @name)] @reference.type)
(type_arguments [(type_identifier) @name
                 (generic_type name: (type_identifier) @name)] @reference.type)
(extends_clause value: [(identifier) @name
                        (member_expression property: (property_identifier) @name)] @reference.inherit)
(implements_clause [(type_identifier) @name
                    (generic_type name: (type_identifier) @name)] @reference.inherit)
(extends_type_clause type: [(type_identifier) @name
                            (generic_type name: (type_identifier) @name)] @reference.inherit)
