#pragma once
// The campaign documents the cloud reads bins and privacy settings from: a
// directory of JSON files, each loaded through the analytics library's own
// campaign loader, so the cloud and the devices agree on every vector's
// layout. For each data item it gives the item's segment of the campaign
// vector and one label per element.
//
// Element layout of one item (as the devices build it): with the item's
// attributes sorted by name and B the product of their bin counts, the
// vector has 1 + B elements; combination k (mixed radix, first attribute
// most significant) lands at element 1 + k, except combination 0, which
// shares element 0 with the events that fall in no bin. Element 1 is only
// ever filled by randomised reports.
//
// The directory is listed again on each lookup, so that a document added or
// changed while the cloud runs is found; a file is loaded again only when its
// modification time or size changed. Any thread.

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "fact/CampaignSchema.h"

namespace vemo {
namespace cloud {

struct ItemLayout {
    std::string name;
    uint32_t offset = 0;
    uint32_t length = 0;
    std::vector<std::string> labels;
};

struct CampaignLayout {
    fact::CampaignSchema schema;
    std::vector<ItemLayout> items;
    // Sum of the items' lengths: a device's vector without its checksum.
    uint32_t vectorLength = 0;
    // The document's file.
    std::string path;
};

class CampaignCatalog {
  public:
    static constexpr const char* kNoBinSuffix = " (or no bin)";
    static constexpr const char* kUnusedLabel = "(unused)";

    // An empty directory name gives a catalog that knows no campaign.
    explicit CampaignCatalog(std::string directory);

    // The first *.json file (by name) whose campaign id matches; files that
    // do not load are skipped with a warning.
    std::optional<CampaignLayout> find(const std::string& campaignId) const;

    // The layout of one loaded campaign; throws what the library throws for
    // an item it cannot build.
    static CampaignLayout layoutOf(const fact::CampaignSchema& schema);

  private:
    struct Loaded {
        int64_t modifiedNs = 0;
        int64_t size = -1;
        // Empty when the file does not load (reported once).
        std::vector<std::pair<std::string, std::shared_ptr<const CampaignLayout>>> campaigns;
    };
    // The file's campaigns, from the cache while it is unchanged.
    Loaded load(const std::string& path) const;

    std::string directory_;
    mutable std::mutex mutex_;  // guards cache_
    mutable std::map<std::string, Loaded> cache_;
};

}  // namespace cloud
}  // namespace vemo
