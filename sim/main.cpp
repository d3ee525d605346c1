#include "sim/Program.h"

int main(int argc, char** argv) { return sim::runProgram(argc, argv); }
