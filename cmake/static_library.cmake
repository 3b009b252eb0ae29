# A static library: objects joined into one, in which all names but the public functions are local.
# Nothing of it can clash with a name of the program that it is linked to, nor with another of these.
#
# add_joined_library(NAME MAP OBJECT_LIBRARY...): MAP, a linker's version script, lists the public functions.
function(add_joined_library name map)
  file(READ ${map} public_names)
  string(REGEX MATCHALL "se_bf_[a-z0-9_]+" public_names "${public_names}")
  list(TRANSFORM public_names PREPEND "-Wl,-u," OUTPUT_VARIABLE used)
  list(TRANSFORM public_names PREPEND "--keep-global-symbol=" OUTPUT_VARIABLE kept)
  set(objects "")
  foreach(library IN LISTS ARGN)
    list(APPEND objects $<TARGET_OBJECTS:${library}>)
    # Objects for optimisation at link time have no names yet that could be made local.
    target_compile_options(${library} PRIVATE -fno-lto)
  endforeach()

  # The options of the build may choose the processor, as -m32 does.
  separate_arguments(flags UNIX_COMMAND "${CMAKE_CXX_FLAGS}")
  if(CMAKE_CXX_COMPILER_TARGET)
    list(APPEND flags --target=${CMAKE_CXX_COMPILER_TARGET})
  endif()
  set(joined ${CMAKE_CURRENT_BINARY_DIR}/${name}.o)
  add_custom_command(
    OUTPUT ${joined}
    COMMAND ${CMAKE_CXX_COMPILER} ${flags} -r -nostdlib -Wl,--gc-sections ${used} ${objects} -o ${joined}
    COMMAND ${CMAKE_OBJCOPY} ${kept} ${joined}
    DEPENDS ${ARGN} ${objects}
    COMMENT "Joining the objects of ${name}" VERBATIM COMMAND_EXPAND_LISTS)

  add_library(${name} STATIC ${joined})
  set_source_files_properties(${joined} PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)
  target_link_libraries(${name} INTERFACE m)
endfunction()
