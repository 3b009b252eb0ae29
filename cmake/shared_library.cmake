# add_mapped_library(NAME MAP VERSION OBJECT_LIBRARY...): a shared library of objects that exports what MAP,
# a linker's version script, lists and nothing else.
function(add_mapped_library name map version)
  set(objects "")
  foreach(library IN LISTS ARGN)
    list(APPEND objects $<TARGET_OBJECTS:${library}>)
  endforeach()
  add_library(${name} SHARED ${objects})
  set_target_properties(${name} PROPERTIES SOVERSION 1 VERSION ${version} LINK_DEPENDS ${map})
  target_link_options(${name} PRIVATE -Wl,--version-script=${map} -Wl,-z,relro,-z,now
                      -Wl,-z,noexecstack -Wl,--as-needed -Wl,--gc-sections
                      -Wl,-Bsymbolic-functions)
  target_link_libraries(${name} PRIVATE tm_se_bf_options m)
  if(NOT TM_SE_BF_SANITIZE)
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()
