// The dependency graph of the boot sequencer: a plain list of directed edges
// (prerequisite -> dependant), searched linearly on every query. A node exists
// only as an end of some edge. Duplicate edges and self-edges are kept.
//
// The depth-first walk is mutually recursive on purpose: the inner step checks
// only what has been gathered so far and every second level starts a fresh
// outer walk, so a node can appear more than once, a two-node cycle ends and a
// longer cycle never does. The sequencer relies on exactly this order.
//
// Threads: no lock; filled and read by one thread. Results are new values
// owned by the caller.
#pragma once

#include "Edge.h"
#include "VectorObject.h"

#include <algorithm>

namespace Velmora {

template <class T>
class Graph : public VectorObject<Edge<T>> {
public:
    void newEdge(T const& first, T const& second) { this->push_back(Edge<T>(first, second)); }

    // Direct predecessors, in edge order, duplicates kept.
    VectorObject<T> getNodeAncestors(T const& node) const
    {
        VectorObject<T> result;
        for (Edge<T> const& edge : *this)
            if (edge.second == node)
                result.push_back(edge.first);
        return result;
    }

    // Direct successors, in edge order, duplicates kept.
    VectorObject<T> getNodeDescendants(T const& node) const
    {
        VectorObject<T> result;
        for (Edge<T> const& edge : *this)
            if (edge.first == node)
                result.push_back(edge.second);
        return result;
    }

    // Nodes that start some edge and end none, by their first edge.
    VectorObject<T> getRoots() const
    {
        VectorObject<T> result;
        for (Edge<T> const& edge : *this) {
            if (!contains(result, edge.first) && getNodeAncestors(edge.first).empty())
                result.push_back(edge.first);
            // Tests `first` again: `second` always has this edge's `first` as ancestor.
            if (!contains(result, edge.first) && getNodeAncestors(edge.second).empty())
                result.push_back(edge.second);
        }
        return result;
    }

    VectorObject<T> getDfsTree(T const& root) const
    {
        VectorObject<T> result;
        result.push_back(root);
        for (T const& descendant : getNodeDescendants(root))
            if (!contains(result, descendant))
                getDfsTree(descendant, result);
        return result;
    }

    void getDfsTree(T const& node, VectorObject<T>& visited) const
    {
        visited.push_back(node);
        for (T const& descendant : getNodeDescendants(node)) {
            if (contains(visited, descendant))
                continue;
            VectorObject<T> subtree = getDfsTree(descendant);
            visited.insert(visited.end(), subtree.begin(), subtree.end());
        }
    }

private:
    static bool contains(VectorObject<T> const& list, T const& node)
    {
        return std::find(list.begin(), list.end(), node) != list.end();
    }
};

} // namespace Velmora
