#pragma once
// 32-bit words that must not outlive their use in memory: the data of a
// pending request. The words are wiped with OPENSSL_cleanse when the owner
// is destroyed or assigned, unless released. Move-only; no locking.

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace vemocore {

class SecretWords {
  public:
    SecretWords() = default;
    explicit SecretWords(size_t count) : words_(count) {}
    SecretWords(SecretWords&& other) noexcept : words_(std::move(other.words_)) {}
    SecretWords& operator=(SecretWords&& other) noexcept;
    ~SecretWords() { wipe(); }

    uint32_t* data() { return words_.data(); }
    const uint32_t* data() const { return words_.data(); }
    size_t size() const { return words_.size(); }
    // Hands the words over unwiped, once they are no longer secret (masked).
    std::vector<uint32_t> release() { return std::move(words_); }

  private:
    void wipe();

    std::vector<uint32_t> words_;
};

}  // namespace vemocore
