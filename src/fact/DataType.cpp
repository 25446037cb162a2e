#include "fact/DataType.h"

#include <stdexcept>

namespace fact {

DataType::Value DataType::FromString(const std::string& text) {
    if (text == "uint32")
        return UINT32;
    if (text == "uint64")
        return UINT64;
    if (text == "int32")
        return INT32;
    if (text == "int64")
        return INT64;
    if (text == "double")
        return DOUBLE;
    if (text == "string")
        return STRING;
    if (text == "bool")
        return BOOL;
    throw std::invalid_argument("Invalid data type string: " + text);
}

}  // namespace fact
