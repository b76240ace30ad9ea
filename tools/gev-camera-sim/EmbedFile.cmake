# Turns a data file into a C++ source with its bytes, at build time:
#   cmake -DINPUT=file -DOUTPUT=file.cpp -DSYMBOL=name -P EmbedFile.cmake
file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" hexLength)
math(EXPR size "${hexLength} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
string(REGEX REPLACE "(0x[0-9a-f][0-9a-f],){16}" "\\0\n" bytes "${bytes}")
file(WRITE "${OUTPUT}.tmp"
  "// Generated from ${INPUT}; do not edit.\n"
  "#include <cstddef>\n"
  "namespace gevsim {\n"
  "extern const unsigned char ${SYMBOL}[];\n"
  "extern const size_t ${SYMBOL}Size;\n"
  "const unsigned char ${SYMBOL}[] = {\n${bytes}0};\n"
  "const size_t ${SYMBOL}Size = ${size};\n"
  "} // namespace gevsim\n")
file(RENAME "${OUTPUT}.tmp" "${OUTPUT}")
