# Packed tuples: check, extract and unpack arbitrary bytes.
tarvo_fuzz_target(NAME tuple SOURCES tuple_fuzz.cpp LIBS tarvo_tuple)
