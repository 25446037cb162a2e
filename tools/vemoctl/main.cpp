// vemoctl: command-line client of the daemon's binder service.
#include <iostream>
#include <string>
#include <vector>

#include "BinderServiceDirectory.h"
#include "VemoCtl.h"

int main(int argc, char** argv) {
    vemo::ctl::BinderServiceDirectory directory;
    vemo::ctl::VemoCtl ctl(directory, std::cout, std::cerr);
    return ctl.run(std::vector<std::string>(argv + 1, argv + argc));
}
