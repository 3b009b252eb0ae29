# Makes tm_se_bf a static library. Its objects are joined into one, in which all names but those of the
# public functions are local, so that none can clash with a name of the program that links it.
file(READ ${CMAKE_CURRENT_SOURCE_DIR}/cmake/exports.map public_names)
string(REGEX MATCHALL "se_bf_[a-z_]+" public_names "${public_names}")
list(TRANSFORM public_names PREPEND "-Wl,-u," OUTPUT_VARIABLE used)
list(TRANSFORM public_names PREPEND "--keep-global-symbol=" OUTPUT_VARIABLE kept)

# The options of the build may choose the processor, as -m32 does.
separate_arguments(flags UNIX_COMMAND "${CMAKE_CXX_FLAGS}")
if(CMAKE_CXX_COMPILER_TARGET)
  list(APPEND flags --target=${CMAKE_CXX_COMPILER_TARGET})
endif()
set(joined ${CMAKE_CURRENT_BINARY_DIR}/tm_se_bf.o)
add_custom_command(
  OUTPUT ${joined}
  COMMAND ${CMAKE_CXX_COMPILER} ${flags} -r -nostdlib -Wl,--gc-sections ${used}
          $<TARGET_OBJECTS:tm_se_bf_objects> -o ${joined}
  COMMAND ${CMAKE_OBJCOPY} ${kept} ${joined}
  DEPENDS tm_se_bf_objects $<TARGET_OBJECTS:tm_se_bf_objects>
  COMMENT "Joining the objects of the static library" VERBATIM COMMAND_EXPAND_LISTS)

add_library(tm_se_bf STATIC ${joined})
set_source_files_properties(${joined} PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)
# With link-time optimisation the objects would not have names yet that could be made local.
target_compile_options(tm_se_bf_objects PRIVATE -fno-lto)
target_link_libraries(tm_se_bf INTERFACE m)
