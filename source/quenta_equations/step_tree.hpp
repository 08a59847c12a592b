// A binary tree of the steps of a mesh. Each cell is a range of consecutive steps. It is halved in time until it has
// few steps, so that cells of one level are about equally long also where the steps are not.
#pragma once

#include <cstdint>
#include <vector>

namespace quenta {

struct step_cell {
    std::int64_t first, end;  // its steps
    double start, length;     // in time
    std::int64_t parent;      // -1: none
    std::int64_t left, right; // its halves, or -1

    bool is_leaf() const { return left < 0; }
};

class step_tree {
public:
    // If 0 < split < steps, the root is halved there. A cell comes before its halves, and the left one of them with all
    // its parts before the right one.
    step_tree(const std::vector<double>& mesh, std::int64_t split, std::int64_t leaf_steps);

    const step_cell& operator[](std::int64_t cell) const { return cells[cell]; }
    std::int64_t size() const { return std::int64_t(cells.size()); }

    // The leaf of a step.
    std::int64_t leaf_of(std::int64_t step) const;

private:
    std::int64_t add(const std::vector<double>& mesh, std::int64_t first, std::int64_t end, std::int64_t parent,
                     std::int64_t split);

    std::int64_t leaf_steps;
    std::vector<step_cell> cells;
};

} // namespace quenta
