#include "secagg/NeighbourGraph.h"

#include <openssl/rand.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>

namespace secagg {

namespace {

// Uniform in [0, bound) by rejection, so the shuffle has no modulo bias.
uint64_t uniformBelow(uint64_t bound) {
    const uint64_t limit = UINT64_MAX - UINT64_MAX % bound;
    for (;;) {
        uint64_t value = 0;
        if (RAND_bytes(reinterpret_cast<unsigned char*>(&value), sizeof value) != 1) {
            throw std::runtime_error("RAND_bytes failed");
        }
        if (value < limit) {
            return value % bound;
        }
    }
}

}  // namespace

std::vector<std::vector<size_t>> neighbourGraph(size_t members, unsigned k) {
    std::vector<std::vector<size_t>> graph(members);
    const size_t half = k / 2;
    if (members < 2 * half + 1) {
        for (size_t i = 0; i < members; ++i) {
            for (size_t j = 0; j < members; ++j) {
                if (j != i) {
                    graph[i].push_back(j);
                }
            }
        }
        return graph;
    }
    std::vector<size_t> ring(members);
    for (size_t i = 0; i < members; ++i) {
        ring[i] = i;
    }
    for (size_t i = members - 1; i > 0; --i) {
        std::swap(ring[i], ring[uniformBelow(i + 1)]);
    }
    for (size_t pos = 0; pos < members; ++pos) {
        std::vector<size_t>& links = graph[ring[pos]];
        for (size_t d = 1; d <= half; ++d) {
            links.push_back(ring[(pos + d) % members]);
            links.push_back(ring[(pos + members - d) % members]);
        }
        std::sort(links.begin(), links.end());
    }
    return graph;
}

}  // namespace secagg
