# Streams at rates other than 16 kHz. Sets stream_rates_sources; stands alone: nothing of the core,
# no library.
option(TM_SE_BF_STREAM_RATES "Let streams run at 8000 to 192000 Hz; OFF: at 16000 Hz only" ON)
if(TM_SE_BF_STREAM_RATES)
  set(stream_rates_sources
    ${CMAKE_CURRENT_LIST_DIR}/rate_filter.cpp
    ${CMAKE_CURRENT_LIST_DIR}/rate_converter.cpp
    ${CMAKE_CURRENT_LIST_DIR}/upper_band.cpp
    ${CMAKE_CURRENT_LIST_DIR}/rate_path.cpp)
else()
  set(stream_rates_sources ${CMAKE_CURRENT_LIST_DIR}/rate_path_none.cpp)
endif()
