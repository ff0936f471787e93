# Bags: the decoder on arbitrary bytes (with the sample bag types
# registered) and the schema parser on arbitrary text. Both reach the
# library's own headers.
tarvo_fuzz_target(NAME bag_decoder SOURCES bag_decoder_fuzz.cpp LIBS tarvo_bag)
tarvo_fuzz_target(NAME bag_schema SOURCES bag_schema_fuzz.cpp LIBS tarvo_bag
                  DICT bag_schema.dict)
foreach(_t fuzz_bag_decoder fuzz_bag_decoder_replay fuzz_bag_schema fuzz_bag_schema_replay)
  if(TARGET ${_t})
    target_include_directories(${_t} PRIVATE ${PROJECT_SOURCE_DIR}/platform/bag)
    target_compile_definitions(${_t} PRIVATE
      TARVO_BAG_FUZZ_PATH="${PROJECT_SOURCE_DIR}/platform/bag/schemas")
  endif()
endforeach()
