# The stream library: streams of any rate and block length, with the core's objects inside.
include(stream/rates.cmake)

add_library(tm_se_bf_stream_objects OBJECT
  stream/core_instance.cpp
  stream/fault_monitor.cpp
  stream/shield.cpp
  stream/history.cpp
  stream/fixed_maths.cpp
  stream/phase_ramp.cpp
  stream/copy_watch.cpp
  stream/block_facts.cpp
  stream/channel_guard.cpp
  stream/talker_direction.cpp
  stream/channel_mix.cpp
  stream/second_gain.cpp
  stream/pause_gain.cpp
  stream/refined_path.cpp
  stream/lane.cpp
  stream/enhancer.cpp
  stream/block_path.cpp
  stream/input_watch.cpp
  stream/sample_format.cpp
  stream/stream_config.cpp
  stream/se_bf_stream.cpp
  ${stream_rates_sources})
target_include_directories(tm_se_bf_stream_objects PUBLIC include src stream)
target_compile_options(tm_se_bf_stream_objects PRIVATE
                       -fno-exceptions -fno-rtti -fno-unwind-tables -fno-asynchronous-unwind-tables
                       -fdebug-prefix-map=${CMAKE_CURRENT_BINARY_DIR}=build
                       -fdebug-prefix-map=${CMAKE_CURRENT_SOURCE_DIR}=.
                       -fno-math-errno -fno-trapping-math -ffunction-sections -fdata-sections
                       $<${optimised}:-O3>)
if(avx2)
  target_compile_definitions(tm_se_bf_stream_objects PRIVATE TM_SE_BF_USE_AVX2)
endif()
set_target_properties(tm_se_bf_stream_objects PROPERTIES POSITION_INDEPENDENT_CODE ON UNITY_BUILD OFF
                      CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
target_link_libraries(tm_se_bf_stream_objects PRIVATE tm_se_bf_options)

set(map ${CMAKE_CURRENT_SOURCE_DIR}/cmake/stream_exports.map)
if(BUILD_SHARED_LIBS OR NOT DEFINED BUILD_SHARED_LIBS)
  add_mapped_library(tm_se_bf_stream ${map} 1.0.0 tm_se_bf_stream_objects tm_se_bf_objects)
else()
  add_joined_library(tm_se_bf_stream ${map} tm_se_bf_stream_objects tm_se_bf_objects)
endif()
# C linkage is enough: the library uses no C++ run time.
set_target_properties(tm_se_bf_stream PROPERTIES LINKER_LANGUAGE C EXPORT_NAME stream)
target_include_directories(tm_se_bf_stream INTERFACE
  $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
add_library(tm_se_bf::stream ALIAS tm_se_bf_stream)
