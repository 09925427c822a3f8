#include "host/commands/program.h"

int main(int argc, char** argv)
{
    return quorvane::host::RunProgram(argc, argv);
}
