#pragma once
// A record that knows how to write itself into a Parcel and read itself back.
// Parcel::writeParcelable() precedes the record with an int32 presence flag
// (1, or 0 for a null nullable record) and adds no size prefix.

#include <utils/Errors.h>

namespace android {

class Parcel;

class Parcelable {
  public:
    virtual ~Parcelable() = default;
    Parcelable() = default;
    Parcelable(const Parcelable&) = default;
    Parcelable& operator=(const Parcelable&) = default;

    // Writes this record's own fields; returns OK or the first failing write.
    virtual status_t writeToParcel(Parcel* parcel) const = 0;
    // Reads the fields written by writeToParcel, from the parcel's position.
    virtual status_t readFromParcel(const Parcel* parcel) = 0;
};

}  // namespace android
