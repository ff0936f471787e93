#include "tarvocon.h"

int main(int argc, char **argv) { return tarvocon_main(argc, argv); }
