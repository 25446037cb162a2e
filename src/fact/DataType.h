#pragma once
// The value types an attribute can declare in a campaign document. Values
// are fixed: they are compared and stored as numbers elsewhere.
//
// Stateless; any thread.

#include <string>

namespace fact {

class DataType {
  public:
    enum Value : int {
        UINT32 = 0,
        UINT64 = 1,
        INT32 = 2,
        INT64 = 3,
        DOUBLE = 4,
        STRING = 5,
        BOOL = 6,
    };

    // Exact, case-sensitive; throws std::invalid_argument
    // "Invalid data type string: <text>" for any other text.
    static Value FromString(const std::string& text);
};

}  // namespace fact
