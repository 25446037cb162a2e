#include "SecretWords.h"

#include <openssl/crypto.h>

namespace vemocore {

SecretWords& SecretWords::operator=(SecretWords&& other) noexcept {
    if (this != &other) {
        wipe();
        words_ = std::move(other.words_);
    }
    return *this;
}

void SecretWords::wipe() {
    if (!words_.empty()) {
        OPENSSL_cleanse(words_.data(), words_.size() * sizeof(uint32_t));
    }
}

}  // namespace vemocore
