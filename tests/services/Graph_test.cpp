// The dependency graph, whose walk order is the order in which the boot sequencer starts services.
#include "Graph.h"
#include "serial/StringObject.h"

#include <gtest/gtest.h>

using namespace Velmora;

namespace {

using Names = std::vector<std::string>;

Graph<StringObject> graphOf(std::vector<std::pair<std::string, std::string>> const& edges)
{
    Graph<StringObject> graph;
    for (auto const& [first, second] : edges)
        graph.newEdge(StringObject(first), StringObject(second));
    return graph;
}

Names texts(VectorObject<StringObject> const& nodes)
{
    Names result;
    for (auto const& node : nodes)
        result.push_back(node.getValue());
    return result;
}

Names walkFromA(std::vector<std::pair<std::string, std::string>> const& edges)
{
    return texts(graphOf(edges).getDfsTree(StringObject("a")));
}

TEST(Graph, RootsAreOrderedByTheirFirstEdgeAndNeighboursKeepEdgeOrder)
{
    EXPECT_TRUE(graphOf({}).getRoots().empty());
    EXPECT_EQ((Names{"y", "x"}), texts(graphOf({{"y", "z"}, {"x", "z"}, {"y", "w"}}).getRoots()));
    // A self-edge makes a node its own ancestor; a closed cycle feeding a node hides it too.
    EXPECT_TRUE(graphOf({{"a", "a"}}).getRoots().empty());
    EXPECT_EQ((Names{"r"}), texts(graphOf({{"p", "q"}, {"q", "p"}, {"q", "n"}, {"r", "s"}}).getRoots()));

    // Neighbours and the walk keep edge order and duplicates.
    auto graph = graphOf({{"a", "c"}, {"a", "b"}, {"a", "b"}, {"d", "b"}});
    EXPECT_EQ((Names{"c", "b", "b"}), texts(graph.getNodeDescendants(StringObject("a"))));
    EXPECT_EQ((Names{"a", "a", "d"}), texts(graph.getNodeAncestors(StringObject("b"))));
    EXPECT_EQ((Names{"a", "c", "b"}), texts(graph.getDfsTree(StringObject("a"))));
    EXPECT_EQ((Names{"a"}), walkFromA({}));
}

TEST(Graph, WalkOrderWithDiamondsRepeatsAndCyclesThatAreNamedOnce)
{
    EXPECT_EQ((Names{"a", "b", "d", "c"}), walkFromA({{"a", "b"}, {"a", "c"}, {"b", "d"}, {"c", "d"}}));
    // The fresh walk at every second level forgets what its caller had: e twice.
    EXPECT_EQ((Names{"a", "b", "c", "e", "d", "e"}),
              walkFromA({{"a", "b"}, {"b", "c"}, {"b", "d"}, {"c", "e"}, {"d", "e"}}));
    EXPECT_EQ((Names{"a", "b"}), walkFromA({{"a", "b"}, {"b", "a"}}));

    // A cycle of three or more ends at the edge that closes it, is named once
    // however often the walk meets it, and leaves the rest of the walk as it was.
    auto const graph = graphOf({{"r", "a"}, {"a", "b"}, {"b", "c"}, {"c", "a"}, {"c", "d"}, {"r", "b"}, {"r", "e"}});
    EXPECT_EQ((Names{"r", "a", "b", "c", "d", "e"}), texts(graph.getDfsTree(StringObject("r"))));
    auto const cycles = graph.getCycles(StringObject("r"));
    ASSERT_EQ(1u, cycles.size());
    EXPECT_EQ((Names{"a", "b", "c"}), texts(cycles[0]));
    EXPECT_TRUE(graphOf({{"a", "b"}, {"b", "c"}, {"c", "e"}, {"b", "e"}}).getCycles(StringObject("a")).empty());
}

} // namespace
