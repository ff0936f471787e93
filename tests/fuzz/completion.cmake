# TAB, "?" and Enter expansion over any line, with paths completed from a
# small tree in a temporary data directory.
tarvo_fuzz_target(NAME completion SOURCES completion_fuzz.cpp LIBS tarvocon_core
                  DICT completion.dict)
