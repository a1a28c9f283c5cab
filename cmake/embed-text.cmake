# Writes OUT, a C++ source whose function NAMESPACE::FUNCTION() returns the text of the file IN:
# what the program installs is carried inside it, never read from the tree at run time.
file(READ ${IN} body)
if(body MATCHES "\\)text\"")
  message(FATAL_ERROR "${IN} holds the text )text\" that ends the embedded string")
endif()
file(RELATIVE_PATH shown ${CMAKE_CURRENT_LIST_DIR}/.. ${IN})
set(text "// Generated from ${shown}; edit that.\n")
string(APPEND text "#include <string_view>\n\nnamespace ${NAMESPACE} {\n\n")
string(APPEND text "std::string_view ${FUNCTION}() {\n    return R\"text(${body})text\";\n}\n\n")
string(APPEND text "}  // namespace ${NAMESPACE}\n")
# Rewritten only when it changed, so that nothing recompiles for nothing.
file(WRITE ${OUT}.tmp "${text}")
file(COPY_FILE ${OUT}.tmp ${OUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUT}.tmp)
