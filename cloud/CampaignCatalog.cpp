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

std::optional<CampaignLayout> CampaignCatalog::find(const std::string& campaignId) const {
    if (directory_.empty()) {
        return std::nullopt;
    }
    const fact::CampaignSchemaProvider provider;
    for (const auto& path : jsonFiles(directory_)) {
        try {
            auto loaded = provider.LoadConfig(path);
            const auto found = loaded.find(campaignId);
            if (found != loaded.end()) {
                return layoutOf(found->second);
            }
        } catch (const std::exception& e) {
            struct stat info {};
            stat(path.c_str(), &info);
            std::lock_guard<std::mutex> lock(mutex_);
            if (warned_.emplace(path, static_cast<int64_t>(info.st_mtime)).second) {
                logger.w("%s:skipping %s: %s", "find", path.c_str(), e.what());
            }
        }
    }
    return std::nullopt;
}

}  // namespace cloud
}  // namespace vemo
