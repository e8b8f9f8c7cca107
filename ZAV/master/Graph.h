// The dependency graph of the boot sequencer: a plain list of directed edges
// (prerequisite -> dependant), searched linearly on every query. A node exists
// only as an end of some edge. Duplicate edges and self-edges are kept.
//
// The depth-first walk is mutually recursive: the inner step checks only what
// has been gathered so far and every second level starts a fresh outer walk,
// so a node can appear more than once. The sequencer relies on exactly this
// order. Each walk also carries the chain of nodes whose walks enclose it: an
// edge back onto that chain closes a dependency cycle and is not followed, so
// every walk ends; getCycles() names the cycles so found.
//
// Threads: no lock; filled and read by one thread. Results are new values
// owned by the caller.
#pragma once

#include "interfaces/Edge.h"
#include "serial/VectorObject.h"

#include <algorithm>
#include <vector>

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
        VectorObject<T> chain;
        return outerWalk(root, chain, nullptr);
    }

    // The inner step of the walk: appends `node` and what it reaches to `visited`.
    void getDfsTree(T const& node, VectorObject<T>& visited) const
    {
        VectorObject<T> chain;
        innerWalk(node, visited, chain, nullptr);
    }

    // The dependency cycles that the walk from `root` meets, each as the nodes
    // from the one the closing edge leads back to, in walk order; each once.
    std::vector<VectorObject<T>> getCycles(T const& root) const
    {
        std::vector<VectorObject<T>> cycles;
        VectorObject<T> chain;
        outerWalk(root, chain, &cycles);
        return cycles;
    }

private:
    using Cycles = std::vector<VectorObject<T>>;

    VectorObject<T> outerWalk(T const& root, VectorObject<T>& chain, Cycles* cycles) const
    {
        VectorObject<T> result;
        result.push_back(root);
        chain.push_back(root);
        for (T const& descendant : getNodeDescendants(root))
            if (!contains(result, descendant) && !closesCycle(descendant, chain, cycles))
                innerWalk(descendant, result, chain, cycles);
        chain.pop_back();
        return result;
    }

    void innerWalk(T const& node, VectorObject<T>& visited, VectorObject<T>& chain, Cycles* cycles) const
    {
        visited.push_back(node);
        chain.push_back(node);
        for (T const& descendant : getNodeDescendants(node)) {
            if (contains(visited, descendant) || closesCycle(descendant, chain, cycles))
                continue;
            VectorObject<T> subtree = outerWalk(descendant, chain, cycles);
            visited.insert(visited.end(), subtree.begin(), subtree.end());
        }
        chain.pop_back();
    }

    // True when `next` is on `chain`: the edge to it closes a cycle, which is
    // added to `cycles` unless a cycle of the same nodes is there already.
    static bool closesCycle(T const& next, VectorObject<T> const& chain, Cycles* cycles)
    {
        auto const start = std::find(chain.begin(), chain.end(), next);
        if (start == chain.end())
            return false;
        if (!cycles)
            return true;
        VectorObject<T> cycle;
        cycle.insert(cycle.end(), start, chain.end());
        auto const sameNodes = [&](VectorObject<T> const& known) {
            return known.size() == cycle.size() &&
                   std::all_of(cycle.begin(), cycle.end(), [&](T const& node) { return contains(known, node); });
        };
        if (std::none_of(cycles->begin(), cycles->end(), sameNodes))
            cycles->push_back(std::move(cycle));
        return true;
    }

    static bool contains(VectorObject<T> const& list, T const& node)
    {
        return std::find(list.begin(), list.end(), node) != list.end();
    }
};

} // namespace Velmora
