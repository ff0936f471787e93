tarvo_fuzz_target(NAME xnf SOURCES xnf_fuzz.cpp LIBS tarvo_core)
tarvo_fuzz_target(NAME xnd SOURCES xnd_fuzz.cpp LIBS tarvo_core)
