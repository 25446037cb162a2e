#pragma once
// One bin of an attribute: the interval [min, max] (or [min, max) without
// includeMax) of values of type T. An enum bin is the degenerate interval
// [value, value]. The event's value arrives as text and is converted by the
// attribute's declared type with the conversions of the 32-bit device, where
// `long` has 32 bits: widths are explicit here and never the host's `long`.
//
// Immutable after construction; any thread may call inRange.

#include <string>

#include "fact/Attr.h"
#include "fact/DataType.h"

namespace fact {

template <typename T>
class Bin : public Attr {
  public:
    // Enum form (not for bool).
    Bin(const std::string& name, const T& value);
    // Range form (not for std::string).
    Bin(const std::string& name, const T& min, const T& max, bool includeMax);

    // Converts `value` by the declared type of the owning attribute (the
    // bin's own type text when it was made on its own) and tests it. Throws
    // std::runtime_error("Invalid data type") for a "string" declared type on
    // a non-string bin, std::invalid_argument / std::out_of_range when the
    // text is not a number of the needed width.
    bool inRange(const std::string& value) const override;
    int32_t firstMatch(const std::vector<std::shared_ptr<Attr>>& bins,
                       const std::string& value) const override;

    // The declared type of the attribute the bin belongs to.
    void setDeclaredType(DataType::Value declared) { declaredType = declared; }

    T min;
    T max;
    bool includeMax;

  private:
    bool holds(const T& v) const;

    DataType::Value declaredType;
};

// The type text fixed by T ("int32" for int, ...).
template <typename T>
const char* binTypeName();

}  // namespace fact
