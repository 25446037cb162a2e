#include "fact/Attr.h"

#include "fact/Bin.h"
#include "fact/DataType.h"

namespace fact {

Attr::Attr(std::string name, std::string type) : name(std::move(name)), type(std::move(type)) {}

Attr::~Attr() = default;

bool Attr::inRange(const std::string& value) const {
    return IndexInRange(value) >= 0;
}

int32_t Attr::IndexInRange(const std::string& value) const {
    return bins.empty() ? -1 : bins.front()->firstMatch(bins, value);
}

int32_t Attr::firstMatch(const std::vector<std::shared_ptr<Attr>>& candidates,
                         const std::string& value) const {
    for (size_t i = 0; i < candidates.size(); ++i) {
        if (candidates[i]->inRange(value)) {
            return static_cast<int32_t>(i);
        }
    }
    return -1;
}

// A bin converts event values by the declared type of its attribute, which
// may differ from the bin's own type text (see the conversion table in Bin).
template <typename T>
void Attr::addBin(const std::string& binName, const T& value) {
    auto bin = std::make_shared<Bin<T>>(binName, value);
    bin->setDeclaredType(DataType::FromString(type));
    bins.push_back(std::move(bin));
}

template <typename T>
void Attr::addBin(const std::string& binName, const T& min, const T& max, bool includeMax) {
    auto bin = std::make_shared<Bin<T>>(binName, min, max, includeMax);
    bin->setDeclaredType(DataType::FromString(type));
    bins.push_back(std::move(bin));
}

template void Attr::addBin<int>(const std::string&, const int&);
template void Attr::addBin<unsigned int>(const std::string&, const unsigned int&);
template void Attr::addBin<long long>(const std::string&, const long long&);
template void Attr::addBin<unsigned long long>(const std::string&, const unsigned long long&);
template void Attr::addBin<double>(const std::string&, const double&);
template void Attr::addBin<std::string>(const std::string&, const std::string&);

template void Attr::addBin<int>(const std::string&, const int&, const int&, bool);
template void Attr::addBin<unsigned int>(const std::string&, const unsigned int&,
                                         const unsigned int&, bool);
template void Attr::addBin<long long>(const std::string&, const long long&, const long long&, bool);
template void Attr::addBin<unsigned long long>(const std::string&, const unsigned long long&,
                                               const unsigned long long&, bool);
template void Attr::addBin<bool>(const std::string&, const bool&, const bool&, bool);
template void Attr::addBin<double>(const std::string&, const double&, const double&, bool);

}  // namespace fact
