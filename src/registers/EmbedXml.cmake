# kesta_embed_xml(<xml file> <variable> <output .cpp>)
#
# Writes a source file that defines `const GenTL::ModuleXml <variable>` with
# the bytes of <xml file> and a terminating zero byte (see ModuleXml.h). Run
# at configure time; the XML is a configure dependency, so an edit of it
# regenerates the source at the next build. The output is rewritten only
# when its text changes.
function(kesta_embed_xml xml variable output)
  file(READ ${xml} hex HEX)
  string(LENGTH "${hex}" digits)
  math(EXPR length "${digits} / 2")
  # Sixteen bytes a line.
  string(REPEAT "[0-9a-f]" 32 line)
  string(REGEX REPLACE "(${line})" "\\1\n    " hex "${hex}")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  get_filename_component(name ${xml} NAME)
  set(text "// Generated from ${name} by EmbedXml.cmake: do not edit.\n")
  string(APPEND text "#include \"registers/ModuleXml.h\"\n\nnamespace GenTL {\n\nnamespace {\n")
  string(APPEND text "const unsigned char kBytes[] = {\n    ${bytes}0x00};\n} // namespace\n\n")
  string(APPEND text "const ModuleXml ${variable} = {kBytes, ${length}UL};\n\n} // namespace GenTL\n")
  file(WRITE ${output}.tmp "${text}")
  configure_file(${output}.tmp ${output} COPYONLY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${xml})
endfunction()
