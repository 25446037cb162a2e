#include "CampaignCatalog.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <exception>

#include "common/VemoLogger.h"
#include "fact/CampaignSchemaProvider.h"
#include "fact/VectorProducer.h"

namespace vemo {
namespace cloud {

namespace {

const VemoLogger logger("CampaignCatalog");

std::vector<std::string> jsonFiles(const std::string& directory) {
    std::vector<std::string> files;
    DIR* dir = opendir(directory.c_str());
    if (!dir) {
        return files;
    }
    while (const dirent* entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name.size() > 5 && name.compare(name.size() - 5, 5, ".json") == 0) {
            files.push_back(directory + "/" + name);
        }
    }
    closedir(dir);
    std::sort(files.begin(), files.end());
    return files;
}

ItemLayout itemLayout(const fact::VectorProducerConfig& config) {
    ItemLayout item;
    item.name = config.analyticsName;
    // The library's producer fixes the length (and refuses oversized items).
    item.length = static_cast<uint32_t>(fact::VectorProducer(config, nullptr).vectorSize());
    std::vector<std::shared_ptr<fact::Attr>> attrs;
    for (const auto& entry : config.attributes) {
        attrs.push_back(entry.second);
    }
    std::sort(attrs.begin(), attrs.end(),
              [](const auto& a, const auto& b) { return a->name < b->name; });
    auto combination = [&attrs](uint64_t k) {
        std::vector<std::string> parts(attrs.size());
        for (size_t i = attrs.size(); i-- > 0;) {
            const size_t bins = attrs[i]->bins.size();
            parts[i] = attrs[i]->bins[k % bins]->name;
            k /= bins;
        }
        std::string label;
        for (size_t i = 0; i < parts.size(); ++i) {
            label += (i ? " / " : "") + parts[i];
        }
        return label;
    };
    for (uint32_t j = 0; j < item.length; ++j) {
        if (j == 0) {
            item.labels.push_back(combination(0) + CampaignCatalog::kNoBinSuffix);
        } else if (j == 1) {
            item.labels.push_back(CampaignCatalog::kUnusedLabel);
        } else {
            item.labels.push_back(combination(j - 1));
        }
    }
    return item;
}

}  // namespace

CampaignCatalog::CampaignCatalog(std::string directory) : directory_(std::move(directory)) {}

CampaignLayout CampaignCatalog::layoutOf(const fact::CampaignSchema& schema) {
    CampaignLayout layout;
    layout.schema = schema;
    for (const auto& config : schema.vectorProducerConfigs) {
        ItemLayout item = itemLayout(config);
        item.offset = layout.vectorLength;
        layout.vectorLength += item.length;
        layout.items.push_back(std::move(item));
    }
    return layout;
}

CampaignCatalog::Loaded CampaignCatalog::load(const std::string& path) const {
    struct stat info {};
    Loaded loaded;
    if (stat(path.c_str(), &info) == 0) {
        loaded.modifiedNs = int64_t{info.st_mtim.tv_sec} * 1000000000 + info.st_mtim.tv_nsec;
        loaded.size = static_cast<int64_t>(info.st_size);
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto cached = cache_.find(path);
        if (cached != cache_.end() && cached->second.modifiedNs == loaded.modifiedNs &&
            cached->second.size == loaded.size) {
            return cached->second;
        }
    }
    try {
        for (const auto& entry : fact::CampaignSchemaProvider().LoadConfig(path)) {
            auto layout = std::make_shared<CampaignLayout>(layoutOf(entry.second));
            layout->path = path;
            loaded.campaigns.emplace_back(entry.first, std::move(layout));
        }
    } catch (const std::exception& e) {
        logger.w("%s:skipping %s: %s", "load", path.c_str(), e.what());
    }
    std::lock_guard<std::mutex> lock(mutex_);
    cache_[path] = loaded;
    return loaded;
}

std::optional<CampaignLayout> CampaignCatalog::find(const std::string& campaignId) const {
    if (directory_.empty()) {
        return std::nullopt;
    }
    for (const auto& path : jsonFiles(directory_)) {
        for (const auto& campaign : load(path).campaigns) {
            if (campaign.first == campaignId) {
                return *campaign.second;
            }
        }
    }
    return std::nullopt;
}

}  // namespace cloud
}  // namespace vemo
