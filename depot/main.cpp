#include "depot/commands.h"

int main(int argc, char** argv) {
    return depot::runCommandLine(argc, argv);
}
