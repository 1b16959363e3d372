# tvk_embed_text(FILE FUNCTION HEADER OUTPUT_VARIABLE)
# Writes a source file that defines `std::string_view TVK::FUNCTION()` (declared in HEADER) with the content of FILE, and
# puts its name into OUTPUT_VARIABLE. Compilers limit the length of one literal, so the text is cut into several. FILE is
# ASCII: a cut then never falls inside a character.
function(tvk_embed_text FILE FUNCTION HEADER OUTPUT_VARIABLE)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${FILE})
  file(READ ${FILE} _text)
  string(LENGTH "${_text}" _length)
  set(_literals "")
  set(_at 0)
  while(_at LESS _length)
    string(SUBSTRING "${_text}" ${_at} 8000 _piece)
    string(APPEND _literals "R\"tvk(${_piece})tvk\"\n")
    math(EXPR _at "${_at} + 8000")
  endwhile()
  set(_output ${CMAKE_CURRENT_BINARY_DIR}/${FUNCTION}.cpp)
  file(CONFIGURE OUTPUT ${_output} @ONLY CONTENT
       "#include \"@HEADER@\"\n\nnamespace TVK {\n\nstd::string_view @FUNCTION@() {\n  return @_literals@;\n}\n\n}  // namespace TVK\n")
  set(${OUTPUT_VARIABLE} ${_output} PARENT_SCOPE)
endfunction()
