#include "app/discover_main.h"

int main(int argc, char* argv[])
{
    return discoverMain(argc, argv);
}
