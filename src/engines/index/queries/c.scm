; C, and the parts of C++ that C has (every node named here is in both grammars).

; Definitions. Prototypes are not definitions.

; A macro before the return type (API int name(...)) leaves the name in an error node after the
; type, which the parser took for the name.
(function_definition
  declarator: (function_declarator (ERROR . (identifier) @name .))) @definition.function
(function_definition
  declarator: [
    (function_declarator declarator: [(identifier) @name
                                      (parenthesized_declarator (identifier) @name)])
    (_ (function_declarator declarator: [(identifier) @name
                                         (parenthesized_declarator (identifier) @name)]))
    (_ (_ (function_declarator declarator: (identifier) @name)))
  ]) @definition.function

(struct_specifier name: (type_identifier) @name body: (_)) @definition.struct
(union_specifier name: (type_identifier) @name body: (_)) @definition.union
(enum_specifier name: (type_identifier) @name body: (_)) @definition.enum
(type_definition declarator: [
  (type_identifier) @name
  (pointer_declarator declarator: (type_identifier) @name)
  (pointer_declarator declarator: (pointer_declarator declarator: (type_identifier) @name))
  (array_declarator declarator: (type_identifier) @name)
  (function_declarator declarator: (parenthesized_declarator
    (pointer_declarator declarator: (type_identifier) @name)))
  (function_declarator declarator: (type_identifier) @name)
]) @definition.type
(enumerator name: (identifier) @name) @definition.constant
[(preproc_def name: (identifier) @name)
 (preproc_function_def name: (identifier) @name)] @definition.macro

; File-scope variables (not declarations of ones defined elsewhere).
(translation_unit (declaration
  declarator: [(identifier) @name
               (init_declarator declarator: [(identifier) @name
                                             (pointer_declarator declarator: (identifier) @name)
                                             (array_declarator declarator: (identifier) @name)])
               (pointer_declarator declarator: (identifier) @name)
               (array_declarator declarator: (identifier) @name)]) @definition.variable)

; References.
(call_expression
  function: [(identifier) @name
             (field_expression field: (field_identifier) @name)
             (parenthesized_expression (identifier) @name)]) @reference.call

; Macro bodies are text to the grammar; the calls in them are found in the text.
[(preproc_def value: (preproc_arg) @text.calls)
 (preproc_function_def value: (preproc_arg) @text.calls)]

(type_identifier) @name @reference.type

(preproc_include path: [(string_literal (string_content) @name)
                        (system_lib_string) @name] @reference.import)
