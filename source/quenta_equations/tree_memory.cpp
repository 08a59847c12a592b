#include "quenta_equations/tree_memory.hpp"

#include "quenta_equations/finite.hpp"
#include "quenta_equations/legendre_rules.hpp"
#include "quenta_equations/powers.hpp"
#include "quenta_solvers/dense_solve.hpp" // eps

#include <algorithm>
#include <cmath>

namespace quenta {

namespace {

constexpr int points = interpolation::points;

// Pairs of cells with fewer pairs of nodes are summed directly.
constexpr std::int64_t least_node_pairs = 2 * points * points;
// The last coefficients of a kernel that is resolved: relative to its values in the pair, and to `scale`. Those of
// (t - s)^-1 are the first number, if the cells are as far apart as they are long.
constexpr double resolved = 2e-14, negligible = 1e-15, lag_rounding = 16.0 * eps;
constexpr double least_value = 1e-3; // of the largest one in a pair, if small values count
constexpr double underflow = 1e-270; // parts of `scale` whose digits do not count
constexpr int lags_of_order = 4;     // where a kernel is measured

// The rule for the integrals of L_j times the polynomials of the interpolation over a step. Without a singularity the
// kernel is only known at the nodes, and the integral over the step is its sum with the weights h b_j.
template <class rule_point>
std::vector<rule_point> rule_of_step(const collocation_nodes& nodes, bool is_singular) {
    std::vector<rule_point> rule;
    if (is_singular)
        for (const auto& [x, weight] : gauss_legendre<(points + max_nodes) / 2>()) {
            rule.push_back({x, nodes.values(x)});
            for (double& of_node : rule.back().weight)
                of_node *= weight;
        }
    else
        for (int j = 0; j < nodes.P; ++j) {
            rule.push_back({nodes.c[j], {}});
            rule.back().weight[j] = nodes.b[j];
        }
    return rule;
}

} // namespace

tree_memory::tree_memory(const quenta_equation& in, const quenta_solution& of, std::int64_t from,
                         std::int64_t leaf_steps, bool small_values)
    : equation{in}, solution{of}, D{of.D}, P{of.nodes.P}, relative{small_values}, steps{std::int64_t(of.mesh.size()) -
                                                                                        1},
      source_steps{from}, columns{in.columns_of_lag()}, first_order{std::ilogb(of.mesh[1])},
      tree(of.mesh, from, leaf_steps), sums(steps * P * D), node_times(steps * P) {
    solution.node_times(0, steps, node_times.data());
    // The cells of the sources come first; the root is one of them if all steps are sources.
    const std::int64_t source_cells = source_steps < steps ? tree[0].right : tree.size();
    moments.resize(source_cells * columns * points);
    coefficient.resize(tree.size() * points * D);
    const std::int64_t most_points = std::max(least_node_pairs, leaf_steps * leaf_steps * P * P);
    lags.resize(most_points);
    int widest = 0;
    std::int64_t column = 0;
    terms.reserve(in.memory.size());
    for (std::size_t r = 0; r < in.memory.size(); ++r)
        if (const memory_term& memory = in.memory[r]; memory.of_lag) {
            terms.push_back({r, memory_weights(memory, of, source_steps == steps), column,
                             rule_of_step<rule_point>(of.nodes, memory.singularity > 0.0)});
            terms.back().weighted.resize(source_steps * P * memory.E);
            terms.back().largest.resize(memory.E);
            column += memory.E;
            widest = std::max(widest, memory.E);
        }
    values.resize(most_points * D * widest);
    for (lag_term& term : terms)
        measure(term);
}

// scale: the largest |u^(1 - alpha) K_r(u)| for lags u up to a time, at some lags of each order of magnitude. The
// values for one order follow those for the order before.
void tree_memory::measure(lag_term& term) {
    const memory_term& memory = equation.memory[term.r];
    const std::int64_t block = std::int64_t{D} * memory.E, orders = order_of(solution.mesh.back()) + 1;
    term.scale.assign(orders * block, 0.0);
    for (std::int64_t order = 0; order < orders; ++order) {
        double* const scale = term.scale.data() + order * block;
        if (order > 0)
            std::copy_n(scale - block, block, scale);
        for (int part = 0; part < lags_of_order; ++part)
            lags[part] = std::min(std::ldexp(1.0 + part / double(lags_of_order), int(order) + first_order),
                                  solution.mesh.back());
        memory.kernel(lags_of_order, lags.data(), nullptr, values.data());
        for (int part = 0; part < lags_of_order; ++part)
            for (std::int64_t entry = 0; entry < block; ++entry) {
                const double value =
                    std::fabs(values[part * block + entry]) * lags[part] * power(lags[part], -memory.singularity);
                if (std::isfinite(value))
                    scale[entry] = std::max(scale[entry], value);
            }
    }
}

std::int64_t tree_memory::order_of(double t) const {
    return std::ilogb(t) - first_order;
}

double* tree_memory::moments_of(std::int64_t cell, const lag_term& term) {
    return moments.data() + (cell * columns + term.first_column) * points;
}

const double* tree_memory::sums_of_step(std::int64_t n) {
    if (n == next_leaf)
        enter_leaf(n);
    return sums.data() + n * P * D;
}

// Where step n is the first of a cell, all steps that the cell is to know are complete.
void tree_memory::enter_leaf(std::int64_t n) {
    std::int64_t cell = 0;
    while (!tree[cell].is_leaf()) {
        const auto [left, right] = std::pair{tree[cell].left, tree[cell].right};
        if (n == tree[right].first && tree[left].first < source_steps)
            for (lag_term& term : terms)
                interact(term, left, right);
        const std::int64_t half = n < tree[right].first ? left : right;
        if (n == tree[half].first)
            push_down(cell, half);
        cell = half;
    }
    evaluate_leaf(tree[cell], coefficient.data() + cell * points * D);
    next_leaf = tree[cell].end;
    source_leaf = cell;
}

void tree_memory::push_down(std::int64_t cell, std::int64_t half) {
    const double start = (tree[half].start - tree[cell].start) / tree[cell].length;
    const double length = tree[half].length / tree[cell].length;
    const double* const from = coefficient.data() + cell * points * D;
    double* to = coefficient.data() + half * points * D;
    for (int a = 0; a < points; ++a, to += D) {
        const interpolation::values basis = polynomials.basis(start + polynomials.point(a) * length);
        for (int b = 0; b < points; ++b)
            for (int component = 0; component < D; ++component)
                to[component] += basis[b] * from[std::int64_t{b} * D + component];
    }
}

void tree_memory::evaluate_leaf(const step_cell& leaf, const double* polynomial) {
    double* sum = sums.data() + leaf.first * P * D;
    for (std::int64_t node = leaf.first * P; node < leaf.end * P; ++node, sum += D) {
        const interpolation::values basis = polynomials.basis((node_times[node] - leaf.start) / leaf.length);
        for (int a = 0; a < points; ++a)
            for (int component = 0; component < D; ++component)
                sum[component] += basis[a] * polynomial[std::int64_t{a} * D + component];
    }
}

void tree_memory::interact(lag_term& term, std::int64_t source, std::int64_t target) {
    const step_cell &S = tree[source], &T = tree[target];
    const std::int64_t node_pairs = (S.end - S.first) * P * (T.end - T.first) * P;
    const bool are_leaves = S.is_leaf() && T.is_leaf();
    if (node_pairs > least_node_pairs && add_far(term, source, target))
        return;
    if (node_pairs <= least_node_pairs || are_leaves)
        add_near(term, S, T);
    else if (T.is_leaf() || (!S.is_leaf() && S.length > T.length))
        for (const std::int64_t half : {S.left, S.right})
            interact(term, half, target);
    else
        for (const std::int64_t half : {T.left, T.right})
            interact(term, source, half);
}

// False: the cells are too close, or the kernel varies too much.
bool tree_memory::add_far(lag_term& term, std::int64_t source, std::int64_t target) {
    const step_cell &S = tree[source], &T = tree[target];
    const double gap = T.start - solution.mesh[S.end];
    if (gap < std::max(S.length, T.length))
        return false;
    const memory_term& memory = equation.memory[term.r];
    const std::int64_t block = std::int64_t{D} * memory.E;
    for (int a = 0; a < points; ++a)
        for (int b = 0; b < points; ++b)
            lags[a * points + b] = gap + polynomials.point(a) * T.length + (1.0 - polynomials.point(b)) * S.length;
    memory.kernel(points * points, lags.data(), nullptr, values.data());
    for (int p = 0; p < points * points; ++p) {
        const double factor = memory.singularity > 0.0 ? S.length * power(lags[p], -memory.singularity) : S.length;
        for (std::int64_t entry = 0; entry < block; ++entry)
            values[p * block + entry] *= factor;
    }
    if (!is_resolved(term, S, T))
        return false;
    const double* const of_source = moments_of(source, term);
    for (int a = 0; a < points; ++a)
        add_kernel_sum(*kernels, values.data() + a * points * block, of_source, points, D, memory.E,
                       coefficient.data() + (target * points + a) * D);
    return true;
}

// Values that are not finite are not resolved.
bool tree_memory::is_resolved(const lag_term& term, const step_cell& S, const step_cell& T) const {
    const std::int64_t block = std::int64_t{D} * equation.memory[term.r].E;
    const double* const scale = term.scale.data() + order_of(T.start + T.length) * block;
    // How much of its variation in the pair a kernel varies if the lag is rounded.
    const double longest = std::max(S.length, T.length), lag = T.start + T.length - S.start;
    const double rounding = lag_rounding * (lag / longest);
    for (std::int64_t entry = 0; entry < block; ++entry)
        if (!is_resolved(values.data() + entry, int(block), rounding, scale[entry]))
            return false;
    return are_finite(values.data(), points * points * block);
}

// One entry of the blocks.
bool tree_memory::is_resolved(const double* value, int stride, double rounding, double scale) const {
    interpolation::values of_row{}, of_column{}; // the largest magnitudes
    double lowest = *value, highest = *value, last = 0.0;
    const int row = points * stride;
    for (int a = 0; a < points; ++a) {
        for (int b = 0; b < points; ++b) {
            const double here = value[a * row + b * stride];
            lowest = std::min(lowest, here);
            highest = std::max(highest, here);
            of_row[a] = std::max(of_row[a], std::fabs(here));
            of_column[b] = std::max(of_column[b], std::fabs(here));
        }
        last = std::max({last, polynomials.last_coefficients(value + a * row, stride),
                         polynomials.last_coefficients(value + a * stride, row)});
    }
    const double largest = std::max(std::fabs(lowest), std::fabs(highest));
    const double error = last - rounding * (highest - lowest);
    if (!relative)
        return error <= std::max(resolved * largest, negligible * scale);
    if (largest <= underflow * scale)
        return true;
    return error <= resolved * largest && *std::min_element(of_row.begin(), of_row.end()) >= least_value * largest &&
           *std::min_element(of_column.begin(), of_column.end()) >= least_value * largest;
}

void tree_memory::add_near(lag_term& term, const step_cell& S, const step_cell& T) {
    const memory_term& memory = equation.memory[term.r];
    const std::int64_t sources = (S.end - S.first) * P, first = S.first * P;
    double* lag = lags.data();
    for (std::int64_t node = T.first * P; node < T.end * P; ++node)
        for (std::int64_t source = first; source < first + sources; ++source)
            *lag++ = node_times[node] - node_times[source];
    memory.kernel(lag - lags.data(), lags.data(), nullptr, values.data());
    double* value = values.data();
    for (std::int64_t node = T.first * P; node < T.end * P; ++node, value += sources * D * memory.E) {
        term.weights.multiply_at_node(node / P, int(node % P), first, sources, std::int64_t{D} * memory.E, value);
        add_kernel_sum(*kernels, value, term.weighted.data() + first * memory.E, sources, D, memory.E,
                       sums.data() + node * D);
    }
}

void tree_memory::add_step(std::int64_t n, std::size_t r, const double* phi) {
    lag_term& term = *std::find_if(terms.begin(), terms.end(), [r](const lag_term& each) { return each.r == r; });
    const int E = equation.memory[r].E;
    const step_cell& leaf = tree[source_leaf];
    const double h = solution.step_length(n) / leaf.length;
    for (const rule_point& point : term.rule) {
        const double at = (solution.mesh[n] - leaf.start) / leaf.length + point.x * h;
        const interpolation::values basis = polynomials.basis(at);
        for (int c = 0; c < E; ++c) {
            double value = 0.0;
            for (int j = 0; j < P; ++j)
                value += point.weight[j] * phi[j * E + c];
            double* moment = moments_of(source_leaf, term) + c;
            for (int b = 0; b < points; ++b, moment += E)
                *moment += h * basis[b] * value;
        }
    }
    double* to = term.weighted.data() + n * P * E;
    for (int j = 0; j < P; ++j)
        for (int c = 0; c < E; ++c, ++phi) {
            *to++ = term.weights.of_source(n, j) * *phi;
            term.largest[c] = std::max(term.largest[c], std::fabs(*phi));
        }
    if (r == terms.back().r && n + 1 == leaf.end)
        for (std::int64_t cell = leaf.parent; cell >= 0 && tree[cell].end == n + 1; cell = tree[cell].parent)
            gather(cell);
}

// The moments of a cell from those of its halves.
void tree_memory::gather(std::int64_t cell) {
    for (const std::int64_t half : {tree[cell].left, tree[cell].right}) {
        const double start = (tree[half].start - tree[cell].start) / tree[cell].length;
        const double length = tree[half].length / tree[cell].length;
        for (int b = 0; b < points; ++b) {
            const interpolation::values basis = polynomials.basis(start + polynomials.point(b) * length);
            for (const lag_term& term : terms) {
                const int E = equation.memory[term.r].E;
                const double* const from = moments_of(half, term) + b * E;
                double* to = moments_of(cell, term);
                for (int a = 0; a < points; ++a)
                    for (int c = 0; c < E; ++c)
                        *to++ += length * basis[a] * from[c];
            }
        }
    }
}

double tree_memory::error(int a) const {
    double sum = 0.0;
    const std::int64_t n = std::max(next_leaf, std::int64_t{1});
    for (const lag_term& term : terms) {
        const std::int64_t E = equation.memory[term.r].E;
        const double* const scale = term.scale.data() + order_of(solution.mesh[n]) * D * E + a * E;
        for (std::int64_t c = 0; c < E; ++c)
            sum += scale[c] * term.largest[c];
    }
    return 16.0 * eps * sum;
}

} // namespace quenta
