#pragma once
// An attribute of a campaign's analytics item: its name, its declared type
// text and its bins in the order the campaign lists them. A bin is itself an
// Attr (a `Bin<T>`), so bins and attributes share the `inRange` slot.
//
// Built once by the campaign loader, then immutable: any thread may query it.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace fact {

class Attr {
  public:
    Attr(std::string name, std::string type);
    virtual ~Attr();

    // True when some bin holds the text value.
    virtual bool inRange(const std::string& value) const;

    // Index of the first bin (insertion order) that holds the value; -1 when
    // none does. Conversion errors of a bin (non-numeric text for a numeric
    // attribute, "Invalid data type") propagate.
    int32_t IndexInRange(const std::string& value) const;
    // IndexInRange over `bins`, asked of its first bin. A bin converts the
    // value once for every bin of its own kind (same class and declared
    // type); the others convert for themselves.
    virtual int32_t firstMatch(const std::vector<std::shared_ptr<Attr>>& bins,
                               const std::string& value) const;
    // The class of a bin (one per Bin<T>); null for an attribute.
    const void* binKind() const { return binKind_; }

    // Enum bin: matches exactly `value`. For int, unsigned int, long long,
    // unsigned long long, double and std::string.
    template <typename T>
    void addBin(const std::string& name, const T& value);
    // Range bin [min, max] or [min, max). For int, unsigned int, long long,
    // unsigned long long, bool and double.
    template <typename T>
    void addBin(const std::string& name, const T& min, const T& max, bool includeMax);

    std::string name;
    // One of the DataType texts.
    std::string type;
    std::vector<std::shared_ptr<Attr>> bins;

  protected:
    const void* binKind_ = nullptr;
};

}  // namespace fact
