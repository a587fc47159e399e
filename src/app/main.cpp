// The tarnvale command: reads a glTF scene and exports it as the host would.
#include "app/command.h"

int main(int argc, char** argv) { return tarnvale::app::run(argc, argv); }
