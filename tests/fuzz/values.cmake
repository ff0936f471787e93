# The console's values: the eight integer parsers (checked against each
# other and the C library) and the packed format reader together with the
# display of stored tuples.
tarvo_fuzz_target(NAME values_parsers SOURCES values_parsers_fuzz.cpp
                  LIBS tarvocon_core)
tarvo_fuzz_target(NAME packed_format SOURCES packed_format_fuzz.cpp
                  LIBS tarvocon_core)
