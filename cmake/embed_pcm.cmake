# Writes a C++ source that defines a constant array of 16-bit samples from a raw little-endian file.
#
# cmake -DINPUT=x.s16 -DOUTPUT=x.cpp -DHEADER=dir/x.h -DDECLARATION="const int16_t name[n]" -P embed_pcm.cmake
#
# Samples are composed from bytes, so the result does not depend on the byte order of any machine.
file(READ "${INPUT}" hex HEX)
string(REGEX REPLACE "(..)(..)" "static_cast<int16_t>(0x\\2\\1)," values "${hex}")
string(REGEX REPLACE "(,[^,]*,[^,]*,[^,]*,)" "\\1\n" values "${values}")
file(WRITE "${OUTPUT}" "#include \"${HEADER}\"\n\n${DECLARATION} = {\n${values}\n};\n")
