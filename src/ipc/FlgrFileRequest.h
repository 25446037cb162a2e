#pragma once
// A request to aggregate one file of gradients (".flgr"): the file's path, the
// requesting application's aggregation identifier, a metadata text passed on
// unchanged, and a scale factor for the gradient values. It travels inside a
// PFlgrRequest as a compact JSON text:
//   {"flgrFilePath":"...","applicationId":"...","metadata":"...","scaleValue":0.5}
//
// Immutable value; safe to share between threads.

#include <memory>
#include <string>

namespace vemo {
namespace ipc {

class FlgrFileRequest {
  public:
    FlgrFileRequest(std::string filePath, std::string applicationId, std::string metadata,
                    float scaleValue);

    // Reads the JSON text. Empty on a parse error, on a missing or non-string
    // "flgrFilePath", "applicationId" or "metadata", or on a "scaleValue" that
    // is missing, not a number, or outside the finite float range. Members
    // beyond these four are ignored.
    static std::unique_ptr<FlgrFileRequest> fromJson(const std::string& text);

    // The compact JSON text, members in the order above; the float is widened
    // to double, which narrows back to the same float. A non-finite scale value
    // has no JSON form and is written as null, which fromJson refuses.
    std::string toJson() const;

    std::string getFilePath() const { return filePath_; }
    std::string getApplicationId() const { return applicationId_; }
    std::string getMetadata() const { return metadata_; }
    float getScaleValue() const { return scaleValue_; }

  private:
    std::string filePath_;
    std::string applicationId_;
    std::string metadata_;
    float scaleValue_;
};

}  // namespace ipc
}  // namespace vemo
