#pragma once

// The whole discover process from command line to exit status.
int discoverMain(int argc, char* argv[]);
