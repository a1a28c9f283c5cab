#include "host/cli.hpp"

int main(int argc, char** argv) { return host::run(argc, argv); }
