#include "secagg/NeighbourGraph.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace secagg {
namespace {

TEST(NeighbourGraphTest, ShuffledSymmetricAndOfTheRightDegree) {
    struct Case {
        size_t members;
        unsigned k;
        size_t degree;
    };
    for (const Case& c : {Case{2, 12, 1}, Case{5, 12, 4}, Case{12, 12, 11}, Case{13, 12, 12},
                          Case{14, 12, 12}, Case{100, 12, 12}, Case{9, 5, 4}, Case{3, 2, 2}}) {
        const auto graph = neighbourGraph(c.members, c.k);
        ASSERT_EQ(c.members, graph.size());
        for (size_t i = 0; i < graph.size(); ++i) {
            const auto& links = graph[i];
            EXPECT_EQ(c.degree, links.size()) << c.members << " " << i;
            EXPECT_TRUE(std::is_sorted(links.begin(), links.end()));
            EXPECT_EQ(links.end(), std::adjacent_find(links.begin(), links.end()));
            for (size_t j : links) {
                ASSERT_LT(j, c.members);
                EXPECT_NE(i, j);
                EXPECT_TRUE(std::binary_search(graph[j].begin(), graph[j].end(), i));
            }
        }
    }
    // Unshuffled, member 0 would always sit between 1, 2 and the last two.
    bool shuffled = false;
    for (int i = 0; i < 3 && !shuffled; ++i) {
        shuffled = neighbourGraph(200, 4)[0] != std::vector<size_t>{1, 2, 198, 199};
    }
    EXPECT_TRUE(shuffled);
}

}  // namespace
}  // namespace secagg
