; Definitions.
(class_declaration name: (identifier) @name) @definition.class
(record_declaration name: (identifier) @name) @definition.class
(interface_declaration name: (identifier) @name) @definition.interface
(annotation_type_declaration name: (identifier) @name) @definition.interface
(enum_declaration name: (identifier) @name) @definition.enum
(method_declaration name: (identifier) @name) @definition.method
(constructor_declaration name: (identifier) @name) @definition.method
(compact_constructor_declaration name: (identifier) @name) @definition.method
(annotation_type_element_declaration name: (identifier) @name) @definition.method
(field_declaration declarator: (variable_declarator name: (identifier) @name)) @definition.field
(enum_constant name: (identifier) @name) @definition.constant

; References.
(method_invocation name: (identifier) @name) @reference.call
(object_creation_expression type: [
  (type_identifier) @name
  (generic_type (type_identifier) @name)
  (scoped_type_identifier (type_identifier) @name .)]) @reference.call

(superclass [(type_identifier) @name
             (generic_type (type_identifier) @name)
             (scoped_type_identifier (type_identifier) @name .)] @reference.inherit)
(super_interfaces (type_list [(type_identifier) @name
                              (generic_type (type_identifier) @name)
                              (scoped_type_identifier (type_identifier) @name .)] @reference.inherit))
(extends_interfaces (type_list [(type_identifier) @name
                                (generic_type (type_identifier) @name)] @reference.inherit))

(import_declaration (scoped_identifier name: (identifier) @name) @reference.import)

(type_identifier) @name @reference.type
