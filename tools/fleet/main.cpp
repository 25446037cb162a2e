// vemo_fleet: the demo's helper program; see FleetTool.h.

#include <iostream>

#include "FleetTool.h"

int main(int argc, char** argv) {
    vemo::fleet::FleetTool tool(std::cout, std::cerr);
    return tool.run(std::vector<std::string>(argv + 1, argv + argc));
}
