#include "quenta_equations/step_tree.hpp"

#include <algorithm>

namespace quenta {

step_tree::step_tree(const std::vector<double>& mesh, std::int64_t split, std::int64_t most) : leaf_steps{most} {
    const std::int64_t steps = std::int64_t(mesh.size()) - 1;
    add(mesh, 0, steps, -1, split < steps ? split : 0);
}

// split = 0: in the middle. The depth is limited by the range of the numbers, since each half is at most half as long
// as the cell, or one step.
std::int64_t step_tree::add(const std::vector<double>& mesh, std::int64_t first, std::int64_t end, std::int64_t parent,
                            std::int64_t split) {
    const std::int64_t cell = size();
    cells.push_back({first, end, mesh[first], mesh[end] - mesh[first], parent, -1, -1});
    if (end - first <= leaf_steps && split == 0)
        return cell;
    if (split == 0) {
        const double middle = mesh[first] + 0.5 * (mesh[end] - mesh[first]);
        split = std::lower_bound(mesh.begin() + first + 1, mesh.begin() + end - 1, middle) - mesh.begin();
    }
    const std::int64_t left = add(mesh, first, split, cell, 0), right = add(mesh, split, end, cell, 0);
    cells[cell].left = left;
    cells[cell].right = right;
    return cell;
}

std::int64_t step_tree::leaf_of(std::int64_t step) const {
    std::int64_t cell = 0;
    while (!cells[cell].is_leaf())
        cell = step < cells[cells[cell].right].first ? cells[cell].left : cells[cell].right;
    return cell;
}

} // namespace quenta
