// The dependency graph: roots by first appearance, direct neighbours in edge
// order with duplicates, and the walk's exact order, repeats included.
#include "Deserializer.h"
#include "Graph.h"
#include "StringObject.h"

#include <memory>

#include <gtest/gtest.h>

using namespace Velmora;

namespace {

Graph<StringObject> graphOf(std::vector<std::pair<std::string, std::string>> const& edges)
{
    Graph<StringObject> graph;
    for (auto const& [first, second] : edges)
        graph.newEdge(StringObject(first), StringObject(second));
    return graph;
}

std::vector<std::string> texts(VectorObject<StringObject> const& nodes)
{
    std::vector<std::string> result;
    for (auto const& node : nodes)
        result.push_back(node.getValue());
    return result;
}

using Names = std::vector<std::string>;

TEST(Graph, EmptyAndSingleEdge)
{
    EXPECT_TRUE(graphOf({}).getRoots().empty());
    EXPECT_EQ(Names{"lonely"}, texts(graphOf({}).getDfsTree(StringObject("lonely"))));

    auto graph = graphOf({{"a", "b"}});
    EXPECT_EQ(Names{"a"}, texts(graph.getRoots()));
    EXPECT_TRUE(graph.getNodeAncestors(StringObject("a")).empty());
    EXPECT_EQ(Names{"b"}, texts(graph.getNodeDescendants(StringObject("a"))));
    EXPECT_EQ((Names{"a", "b"}), texts(graph.getDfsTree(StringObject("a"))));
}

TEST(Graph, RootsAreOrderedByTheirFirstEdgeAndNeverHavePredecessors)
{
    auto graph = graphOf({{"y", "z"}, {"x", "z"}, {"y", "w"}});
    EXPECT_EQ((Names{"y", "x"}), texts(graph.getRoots()));
    EXPECT_EQ((Names{"x", "z"}), texts(graph.getDfsTree(StringObject("x"))));
    // A self-edge makes a node its own ancestor; a closed cycle feeding a node hides it too.
    EXPECT_TRUE(graphOf({{"a", "a"}}).getRoots().empty());
    EXPECT_EQ((Names{"r"}), texts(graphOf({{"p", "q"}, {"q", "p"}, {"q", "n"}, {"r", "s"}}).getRoots()));
}

TEST(Graph, NeighboursKeepEdgeOrderAndDuplicates)
{
    auto graph = graphOf({{"a", "c"}, {"a", "b"}, {"a", "b"}, {"d", "b"}});
    EXPECT_EQ((Names{"c", "b", "b"}), texts(graph.getNodeDescendants(StringObject("a"))));
    EXPECT_EQ((Names{"a", "a", "d"}), texts(graph.getNodeAncestors(StringObject("b"))));
    EXPECT_EQ((Names{"a", "c", "b"}), texts(graph.getDfsTree(StringObject("a"))));
}

TEST(Graph, WalkOrderWithDiamondsAndRepeats)
{
    EXPECT_EQ((Names{"a", "b", "d", "c"}),
              texts(graphOf({{"a", "b"}, {"a", "c"}, {"b", "d"}, {"c", "d"}}).getDfsTree(StringObject("a"))));
    // The fresh walk at every second level forgets what its caller had: e twice.
    EXPECT_EQ((Names{"a", "b", "c", "e", "d", "e"}),
              texts(graphOf({{"a", "b"}, {"b", "c"}, {"b", "d"}, {"c", "e"}, {"d", "e"}})
                        .getDfsTree(StringObject("a"))));
    EXPECT_EQ((Names{"a", "b"}), texts(graphOf({{"a", "b"}, {"b", "a"}}).getDfsTree(StringObject("a"))));
}

TEST(Graph, EdgesTravelAsSerialObjects)
{
    auto graph = graphOf({{"a", "b"}, {"b", "c"}});
    std::string const text = graph.serialize();
    Deserializer deserializer(text);
    VectorObject<Edge<StringObject>> copy(deserializer);
    ASSERT_EQ(2u, copy.size());
    EXPECT_EQ("b", copy[1].first.getValue());
    EXPECT_EQ("c", copy[1].second.getValue());
    EXPECT_EQ("Edge", copy[0].getObjectType());
    std::unique_ptr<SerialObject> clone(copy[0].clone());
    EXPECT_TRUE(*clone == copy[0]);
}

} // namespace
