tarvo_fuzz_target(NAME tarvo_search SOURCES tarvo_search_fuzz.cpp LIBS tarvo_core)
