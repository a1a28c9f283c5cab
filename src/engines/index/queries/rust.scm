; Definitions. Functions in an impl or a trait are methods; an impl's type is their scope.
(impl_item
  type: [(type_identifier) @scope
         (generic_type type: (type_identifier) @scope)
         (scoped_type_identifier name: (type_identifier) @scope)
         (generic_type type: (scoped_type_identifier name: (type_identifier) @scope))]
  body: (declaration_list
    [(function_item name: (identifier) @name) @definition.method
     (function_signature_item name: (identifier) @name) @definition.method]))

(trait_item
  body: (declaration_list
    [(function_item name: (identifier) @name) @definition.method
     (function_signature_item name: (identifier) @name) @definition.method]))

(function_item name: (identifier) @name) @definition.function
(function_signature_item name: (identifier) @name) @definition.function

(struct_item name: (type_identifier) @name) @definition.struct
(enum_item name: (type_identifier) @name) @definition.enum
(union_item name: (type_identifier) @name) @definition.union
(type_item name: (type_identifier) @name) @definition.type
(associated_type name: (type_identifier) @name) @definition.type
(trait_item name: (type_identifier) @name) @definition.trait
(mod_item name: (identifier) @name) @definition.module
(macro_definition name: (identifier) @name) @definition.macro
(const_item name: (identifier) @name) @definition.constant
(static_item name: (identifier) @name) @definition.variable

; References.
(call_expression
  function: [
    (identifier) @name
    (field_expression field: (field_identifier) @name)
    (scoped_identifier name: (identifier) @name)
    (generic_function function: [(identifier) @name
                                 (field_expression field: (field_identifier) @name)
                                 (scoped_identifier name: (identifier) @name)])
  ]) @reference.call

(macro_invocation
  macro: [(identifier) @name (scoped_identifier name: (identifier) @name)]) @reference.call

(impl_item trait: [(type_identifier) @name
                   (generic_type type: (type_identifier) @name)
                   (scoped_type_identifier name: (type_identifier) @name)] @reference.inherit)

(type_identifier) @name @reference.type

(use_declaration argument: [
  (identifier) @name
  (scoped_identifier name: (identifier) @name)
  (use_as_clause path: [(identifier) @name (scoped_identifier name: (identifier) @name)])
] @reference.import)
(use_list [(identifier) @name
           (scoped_identifier name: (identifier) @name)] @reference.import)
