#include "CommandLine.h"

int main(int argc, char** argv) {
    return vemo::cloud::CommandLine::main(argc, argv);
}
