# The console's tokenizer (both modes) and path resolution against the bind
# point.
tarvo_fuzz_target(NAME tokenize SOURCES tokenize_fuzz.cpp LIBS tarvocon_core)
