; JavaScript and TSX: JSX elements name the components they use.
(jsx_opening_element name: [(identifier) @name
                            (member_expression property: (property_identifier) @name)]
  @reference.call
  (#match? @name "^[A-Z]"))
(jsx_self_closing_element name: [(identifier) @name
                                 (member_expression property: (property_identifier) @name)]
  @reference.call
  (#match? @name "^[A-Z]"))
