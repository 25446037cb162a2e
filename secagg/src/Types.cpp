#include "secagg/Types.h"

namespace secagg {

const char* kindName(Kind kind) {
    return kind == Kind::Flgr ? "flgr" : "integral";
}

bool kindFromName(const std::string& name, Kind& out) {
    if (name == "integral") {
        out = Kind::Integral;
    } else if (name == "flgr") {
        out = Kind::Flgr;
    } else {
        return false;
    }
    return true;
}

}  // namespace secagg
