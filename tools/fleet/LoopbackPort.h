#pragma once
// Finds or checks a TCP port on 127.0.0.1 for the demo's cloud by binding a
// socket the way a server does (SO_REUSEADDR, so a port held only by
// connections closing down counts as free) and closing it again.
//
// Stateless; any thread. Another program may of course take the port between
// the check and the cloud's own bind; the cloud's start-up then fails.

#include <string>

namespace vemo {
namespace fleet {

class LoopbackPort {
  public:
    // A port the system considers free now; 0 with `error` set when none.
    static int pickFree(std::string* error);
    // True when `port` can be bound now; otherwise false and why in `error`
    // ("in use by another program", or the system's text).
    static bool isFree(int port, std::string* error);
};

}  // namespace fleet
}  // namespace vemo
