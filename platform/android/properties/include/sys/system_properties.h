#pragma once
// Host stand-in for bionic's <sys/system_properties.h>: the subset the system uses.
//
// Properties come from two files under the device root, and a changed file is
// seen on the very next call, as on the device (each call checks the files and
// parses again any that may have changed since it was last parsed):
//   system/build.prop            read-only build properties
//   data/property/persist.prop   persisted properties; later lines win
// Each file holds "key=value" lines; blank lines and lines starting with '#'
// are ignored, as are malformed lines (no '=' or an empty key). A missing or
// unreadable file contributes nothing. Thread-safe.

#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

// Copies the value of `name` (at most PROP_VALUE_MAX - 1 characters, NUL
// terminated) into `value` and returns its length; 0 with an empty value when
// the property is absent.
int __system_property_get(const char* name, char* value);

// Sets a property. Names starting with "persist." are written to the persist
// file; others are written there too (the host has no property service to
// keep them in memory). Returns 0 on success, -1 on a bad name or value or a
// write failure.
int __system_property_set(const char* name, const char* value);

#ifdef __cplusplus
}
#endif
