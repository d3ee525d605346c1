// The flasher. Everything it does is in the library beside this file.

#include "app/MainFlow.h"
#include "sw_drv/RTkernel/linux/threadfunc.h"

int main(int argc, char* argv[]) { threadfunc::exitProcess(CANFlasher::runProgram(argc, argv)); }
