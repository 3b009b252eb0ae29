# Checks the compiler against those that the library is built and tested with.
set(help "\nInstall a newer one and name it: cmake -DCMAKE_C_COMPILER=gcc-12 -DCMAKE_CXX_COMPILER=g++-12 ...")
foreach(supported "GNU 11" "Clang 14")
  separate_arguments(supported)
  list(GET supported 0 id)
  list(GET supported 1 oldest)
  if(CMAKE_CXX_COMPILER_ID STREQUAL id)
    set(known ON)
    if(CMAKE_CXX_COMPILER_VERSION VERSION_LESS oldest)
      message(FATAL_ERROR "tm_se_bf needs gcc 11 or later, or clang 14 or later; this is "
              "${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}.${help}")
    endif()
  endif()
endforeach()
if(NOT known)
  message(WARNING "tm_se_bf is tested with gcc 11 and later and with clang 14 and later, not with "
          "${CMAKE_CXX_COMPILER_ID}: run the tests, which compare the output's bits.")
endif()
