#pragma once
// The cloud's choice of who masks with whom in a session: the members are
// shuffled with a uniform permutation from OpenSSL's random source, put on a
// ring, and each is linked to the k/2 members on either side (k rounded down
// to even); with fewer than k + 1 members, everyone is linked to everyone.
// The graph is symmetric and connected, so the cohort's sum is all the masks
// reveal. Stateless; any thread.

#include <cstddef>
#include <vector>

namespace secagg {

// result[i] lists the indices of member i's neighbours, in ascending order.
// Throws std::runtime_error when the random source fails.
std::vector<std::vector<size_t>> neighbourGraph(size_t members, unsigned k);

}  // namespace secagg
