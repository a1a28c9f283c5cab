; Definitions. A function directly in a class body is a method.
(class_definition
  body: (block
    [(function_definition name: (identifier) @name) @definition.method
     (decorated_definition
       definition: (function_definition name: (identifier) @name) @definition.method)]))

(class_definition name: (identifier) @name) @definition.class

(function_definition name: (identifier) @name) @definition.function

(assignment left: (identifier) @name right: (lambda)) @definition.function

; Module-level names: ALL_CAPS ones are constants by convention.
(module
  (expression_statement
    (assignment left: (identifier) @name) @definition.constant)
  (#match? @name "^[A-Z][A-Z0-9_]*$"))

(module
  (expression_statement
    (assignment left: (identifier) @name) @definition.variable))

; References.
(call
  function: [
    (identifier) @name
    (attribute attribute: (identifier) @name)
  ]) @reference.call

(class_definition
  superclasses: (argument_list
    [(identifier) @name
     (attribute attribute: (identifier) @name)] @reference.inherit))

(import_statement name: [
  (dotted_name) @name
  (aliased_import name: (dotted_name) @name)] @reference.import)

(import_from_statement name: [
  (dotted_name (identifier) @name .)
  (aliased_import name: (dotted_name (identifier) @name .))] @reference.import)

(type [(identifier) @name
       (generic_type (identifier) @name)
       (attribute attribute: (identifier) @name)] @reference.type)
