#include "zelvek/cli/cli.h"

int main(int argc, char** argv) { return zelvek::cli::Main(argc, argv); }
