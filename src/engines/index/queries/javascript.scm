; JavaScript's own.
(class_heritage ; TypeScript wraps this in an extends clause
  [(identifier) @name
   (member_expression property: (property_identifier) @name)
   (call_expression function: (identifier) @name)] @reference.inherit)
