# Writes OUTPUT, a C++ source holding the bytes of INPUT as the simulator's built-in description.
file(READ ${INPUT} content HEX)
string(LENGTH "${content}" hexLength)
math(EXPR byteCount "${hexLength} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${content}")
string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)" "\\1\n" bytes "${bytes}")
file(WRITE ${OUTPUT}
"// Generated from korvatin-camsim.xml at build time; do not edit.\n"
"#include <cstddef>\n"
"extern const unsigned char kEmbeddedDescription[];\n"
"extern const std::size_t kEmbeddedDescriptionSize;\n"
"const unsigned char kEmbeddedDescription[] = {\n${bytes}0x00};\n"
"const std::size_t kEmbeddedDescriptionSize = ${byteCount};\n")
