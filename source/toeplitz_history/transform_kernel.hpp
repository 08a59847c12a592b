// The transform of rows of complex numbers, vectorized.
//
// The arithmetic is that of the plain radix-2 loop, butterfly by butterfly. Only the order of independent butterflies
// differs, to pass over the memory as few times as possible:
//
//   1. one pass permutes by bit reversal and runs the first log2(width) stages, on square tiles that are transposed in
//      registers;
//   2. blocks that fit in the level-1 cache run all their further stages, two or three at a time, with twiddles from a
//      table on the stack, which is computed once for all blocks of all rows;
//   3. the last stages run two or three at a time over whole rows, with twiddles that are computed in chunks.
//
// The twiddles of a stage come from the recurrence w <- w * exp(i theta), restarted from cos and sin every 32
// butterflies. The runs between restarts are independent, and `width` runs are computed together.
#pragma once

#include "toeplitz_history/vector_kernels.hpp"
#include "utility/lanes.hpp"

#include <cmath>
#include <cstdint>

namespace quenta {

template <class instruction_set>
struct transform_kernel {
    static constexpr int width = instruction_set::width;
    static_assert(width * width <= shortest_vector_transform);
    using vector = lanes<width>;

    // The number of stages that fit in the registers at once.
    static constexpr int stages_at_once = width == 8 ? 3 : 2;
    static constexpr std::int64_t run_length = 32;                // butterflies between two restarts of the twiddles
    static constexpr std::int64_t block_length = transform_block; // of phase 2
    static constexpr std::int64_t chunk_length = 128;             // twiddles of phase 3 that are computed at a time
    static constexpr int max_parts = (1 << stages_at_once) - 1;

    // ---- Twiddles ------------------------------------------------------------------------------------------------

    struct unit {
        double re, im;
    };

    static unit unit_at(double angle) { return {std::cos(angle), std::sin(angle)}; }

    // The twiddle at which a run starts: that of butterfly `first`, a multiple of the run length, in a stage with angle
    // `theta` between its twiddles.
    static unit run_start(std::int64_t first, double theta) {
        return first == 0 ? unit{1.0, 0.0} : unit_at(double(first) * theta);
    }

    // Collects requests for runs of twiddles, and computes `width` runs at a time. All runs are available after the
    // last call of compute().
    class twiddle_runs {
    public:
        // Requests the run with first twiddle `start` and factor `step`; length is a multiple of `width`.
        void want(unit start, unit step, std::int64_t length, double* to_re, double* to_im) {
            start_re[filled] = start.re;
            start_im[filled] = start.im;
            step_re[filled] = step.re;
            step_im[filled] = step.im;
            wanted[filled] = {length, to_re, to_im};
            longest = length > longest ? length : longest;
            if (++filled == width)
                compute();
        }

        void compute() {
            const vector s_re = load<width>(step_re), s_im = load<width>(step_im);
            vector w_re = load<width>(start_re), w_im = load<width>(start_im);
            for (std::int64_t position = 0; position < longest; position += width) {
                vector tile_re[width], tile_im[width];
                for (int row = 0; row < width; ++row) {
                    tile_re[row] = w_re;
                    tile_im[row] = w_im;
                    const vector next_re = s_re * w_re - s_im * w_im;
                    w_im = w_im * s_re + w_re * s_im;
                    w_re = next_re;
                }
                transpose<width>(tile_re);
                transpose<width>(tile_im);
                for (int lane = 0; lane < filled; ++lane)
                    if (position < wanted[lane].length) {
                        store<width>(wanted[lane].to_re + position, tile_re[lane]);
                        store<width>(wanted[lane].to_im + position, tile_im[lane]);
                    }
            }
            filled = 0;
            longest = 0;
        }

    private:
        struct run {
            std::int64_t length;
            double *to_re, *to_im;
        };
        int filled = 0;
        std::int64_t longest = 0;
        double step_re[width] = {}, step_im[width] = {}, start_re[width] = {}, start_im[width] = {};
        run wanted[width];
    };

    // ---- Butterflies ---------------------------------------------------------------------------------------------

    [[gnu::always_inline]] static void butterfly(vector& lo_re, vector& lo_im, vector& hi_re, vector& hi_im,
                                                 const vector& w_re, const vector& w_im) {
        const vector t_im = w_re * hi_im + w_im * hi_re;
        const vector t_re = hi_re * w_re - hi_im * w_im;
        hi_re = lo_re - t_re;
        hi_im = lo_im - t_im;
        lo_re = t_re + lo_re;
        lo_im = t_im + lo_im;
    }

    // The twiddles of `count` fused stages. Stage s pairs elements 2^s * half apart. The twiddles of its part u, the
    // butterflies u * half .. (u+1) * half - 1 of a group, are in entry 2^s - 1 + u.
    struct twiddle_parts {
        const double* re[max_parts];
        const double* im[max_parts];
    };

    // `count` stages, with half, 2 * half, .. butterflies in a group, on all groups of `total` elements. Computes the
    // butterflies first .. first + length - 1 of each part, with the twiddles in `parts`.
    template <int count>
    static void fused_stages(double* re, double* im, std::int64_t total, std::int64_t half, std::int64_t first,
                             std::int64_t length, const twiddle_parts& parts) {
        constexpr int legs = 1 << count;
        for (std::int64_t group = first; group < total; group += half * legs)
            for (std::int64_t k = 0; k < length; k += width) {
                double* const at_re = re + group + k;
                double* const at_im = im + group + k;
                vector leg_re[legs], leg_im[legs];
#pragma GCC unroll 8
                for (int leg = 0; leg < legs; ++leg) {
                    leg_re[leg] = load<width>(at_re + leg * half);
                    leg_im[leg] = load<width>(at_im + leg * half);
                }
#pragma GCC unroll 3
                for (int stage = 0; stage < count; ++stage)
#pragma GCC unroll 8
                    for (int leg = 0; leg < legs; ++leg) {
                        const int distance = 1 << stage;
                        if ((leg & distance) != 0)
                            continue;
                        const int part = distance - 1 + (leg & (distance - 1));
                        butterfly(leg_re[leg], leg_im[leg], leg_re[leg + distance], leg_im[leg + distance],
                                  load<width>(parts.re[part] + k), load<width>(parts.im[part] + k));
                    }
#pragma GCC unroll 8
                for (int leg = 0; leg < legs; ++leg) {
                    store<width>(at_re + leg * half, leg_re[leg]);
                    store<width>(at_im + leg * half, leg_im[leg]);
                }
            }
    }

    static void run_fused(int count, double* re, double* im, std::int64_t total, std::int64_t half, std::int64_t first,
                          std::int64_t length, const twiddle_parts& parts) {
        if (count == 1)
            fused_stages<1>(re, im, total, half, first, length, parts);
        else if (count == 2)
            fused_stages<2>(re, im, total, half, first, length, parts);
        else if constexpr (stages_at_once == 3)
            fused_stages<3>(re, im, total, half, first, length, parts);
    }

    // How many stages the next pass computes, on the way to groups of `length`: as few passes as possible, of even
    // size.
    static int next_count(std::int64_t half, std::int64_t length) {
        int left = 0;
        for (std::int64_t groups = half; groups < length; groups *= 2)
            ++left;
        const int passes = (left + stages_at_once - 1) / stages_at_once;
        return (left + passes - 1) / passes;
    }

    // ---- Phase 1: bit reversal and the first stages ----------------------------------------------------------------

    // In the index of an element, the highest and the lowest log2(width) bits are its row and column in a tile, and the
    // bits between are the number of the tile. Bit reversal transposes each tile, permutes its rows and columns, and
    // swaps the tile with the one of the reversed number.
    struct first_stages {
        vector w_re[width], w_im[width]; // stage with half h: twiddle k at h + k

        explicit first_stages(const block_twiddles& twiddles) {
            for (int k = 1; k < width; ++k) {
                w_re[k] = broadcast<width>(twiddles.re[k]);
                w_im[k] = broadcast<width>(twiddles.im[k]);
            }
        }
    };

    static constexpr int reversed_row(int row) {
        int reversed = 0;
        for (int bit = 1; bit < width; bit *= 2)
            reversed = 2 * reversed + ((row & bit) != 0 ? 1 : 0);
        return reversed;
    }

    [[gnu::always_inline]] static void take_tile(const double* re, const double* im, std::int64_t row_distance,
                                                 vector (&tile_re)[width], vector (&tile_im)[width],
                                                 const first_stages& stages) {
#pragma GCC unroll 8
        for (int row = 0; row < width; ++row) {
            tile_re[row] = load<width>(re + reversed_row(row) * row_distance);
            tile_im[row] = load<width>(im + reversed_row(row) * row_distance);
        }
#pragma GCC unroll 3
        for (int half = 1; half < width; half *= 2)
#pragma GCC unroll 8
            for (int lo = 0; lo < width; ++lo)
                if ((lo & half) == 0) {
                    const int k = lo & (half - 1);
                    butterfly(tile_re[lo], tile_im[lo], tile_re[lo + half], tile_im[lo + half], stages.w_re[half + k],
                              stages.w_im[half + k]);
                }
        transpose<width>(tile_re);
        transpose<width>(tile_im);
    }

    [[gnu::always_inline]] static void put_tile(double* re, double* im, std::int64_t row_distance,
                                                const vector (&tile_re)[width], const vector (&tile_im)[width]) {
#pragma GCC unroll 8
        for (int row = 0; row < width; ++row) {
            store<width>(re + reversed_row(row) * row_distance, tile_re[row]);
            store<width>(im + reversed_row(row) * row_distance, tile_im[row]);
        }
    }

    static void permute_and_start(double* re, double* im, std::int64_t n, const first_stages& stages) {
        const std::int64_t row_distance = n / width;
        const std::int64_t tiles = row_distance / width;
        vector a_re[width], a_im[width], b_re[width], b_im[width];
        std::int64_t reversed = 0;
        for (std::int64_t tile = 0; tile < tiles; ++tile) {
            if (tile <= reversed) {
                double* const at_re = re + tile * width;
                double* const at_im = im + tile * width;
                double* const with_re = re + reversed * width;
                double* const with_im = im + reversed * width;
                take_tile(at_re, at_im, row_distance, a_re, a_im, stages);
                if (tile != reversed) {
                    take_tile(with_re, with_im, row_distance, b_re, b_im, stages);
                    put_tile(at_re, at_im, row_distance, b_re, b_im);
                }
                put_tile(with_re, with_im, row_distance, a_re, a_im);
            }
            std::int64_t bit = tiles / 2;
            for (; (reversed & bit) != 0; bit /= 2)
                reversed -= bit;
            reversed += bit;
        }
    }

    // ---- Phases 2 and 3 ------------------------------------------------------------------------------------------

    // Of all stages of transforms of `block` points; stage with half h: twiddle k at h + k.
    static void fill_twiddles(double* re, double* im, std::int64_t block, double two_pi) {
        for (std::int64_t half = 1; half < width; half *= 2) {
            // A single twiddle needs no step.
            const unit step = half == 1 ? unit{} : unit_at(two_pi / double(2 * half));
            unit w{1.0, 0.0};
            for (std::int64_t k = half; k < 2 * half; ++k) {
                re[k] = w.re;
                im[k] = w.im;
                w = {step.re * w.re - step.im * w.im, w.im * step.re + w.re * step.im};
            }
        }
        // An angle is a power of two times a multiple of two_pi. Halving it is exact, so the first twiddles of the runs
        // of a stage are, bit for bit, every second one of the next stage: those of the longest stage serve all.
        const double theta = two_pi / double(block);
        unit starts[block_length / 2 / run_length];
        for (std::int64_t first = 0; first < block / 2; first += run_length)
            starts[first / run_length] = run_start(first, theta);

        twiddle_runs runs;
        for (std::int64_t half = width; half < block; half *= 2) {
            const unit step = unit_at(two_pi / double(2 * half));
            const std::int64_t every = block / 2 / half;
            for (std::int64_t first = 0; first < half; first += run_length)
                runs.want(starts[first / run_length * every], step, half < run_length ? half : run_length,
                          re + half + first, im + half + first);
        }
        runs.compute();
    }

    static void stages_within_blocks(double* re, double* im, std::int64_t total, std::int64_t block,
                                     const block_twiddles& twiddles) {
        for (std::int64_t begin = 0; begin < total; begin += block)
            for (std::int64_t half = width; half < block;) {
                const int count = next_count(half, block);
                twiddle_parts parts;
                for (int part = 0; part < (1 << count) - 1; ++part) {
                    parts.re[part] = twiddles.re + (part + 1) * half;
                    parts.im[part] = twiddles.im + (part + 1) * half;
                }
                run_fused(count, re + begin, im + begin, block, half, 0, half, parts);
                half <<= count;
            }
    }

    static void stages_across_blocks(double* re, double* im, std::int64_t total, std::int64_t n, double two_pi) {
        alignas(64) double chunk_re[max_parts * chunk_length];
        alignas(64) double chunk_im[max_parts * chunk_length];
        twiddle_parts parts;
        for (int part = 0; part < max_parts; ++part) {
            parts.re[part] = chunk_re + part * chunk_length;
            parts.im[part] = chunk_im + part * chunk_length;
        }
        for (std::int64_t half = block_length; half < n;) {
            const int count = next_count(half, n);
            double theta[stages_at_once];
            unit step[stages_at_once];
            for (int stage = 0; stage < count; ++stage) {
                theta[stage] = two_pi / double(2 * half << stage);
                step[stage] = unit_at(theta[stage]);
            }
            for (std::int64_t first = 0; first < half; first += chunk_length) {
                twiddle_runs runs;
                for (int stage = 0; stage < count; ++stage)
                    for (int u = 0; u < 1 << stage; ++u)
                        for (std::int64_t run = 0; run < chunk_length; run += run_length) {
                            const std::int64_t at = ((1 << stage) - 1 + u) * chunk_length + run;
                            runs.want(run_start(u * half + first + run, theta[stage]), step[stage], run_length,
                                      chunk_re + at, chunk_im + at);
                        }
                runs.compute();
                run_fused(count, re, im, total, half, first, chunk_length, parts);
            }
            half <<= count;
        }
    }

    static void transform_rows_with(double* re, double* im, std::int64_t n, std::int64_t rows, double two_pi,
                                    const block_twiddles& twiddles) {
        const first_stages stages{twiddles};
        for (std::int64_t row = 0; row < rows; ++row)
            permute_and_start(re + row * n, im + row * n, n, stages);
        stages_within_blocks(re, im, rows * n, n < block_length ? n : block_length, twiddles);
        stages_across_blocks(re, im, rows * n, n, two_pi);
    }

    static constexpr double turn = 6.283185307179586;

    static void transform_rows(double* re, double* im, std::int64_t n, std::int64_t rows, bool inverse) {
        const double two_pi = inverse ? turn : -turn;
        alignas(64) double twiddle_re[block_length];
        alignas(64) double twiddle_im[block_length];
        fill_twiddles(twiddle_re, twiddle_im, n < block_length ? n : block_length, two_pi);
        transform_rows_with(re, im, n, rows, two_pi, {twiddle_re, twiddle_im});
    }

    static void fill_block_twiddles(double* re, double* im, std::int64_t block) {
        fill_twiddles(re, im, block, -turn);
    }

    // With real and imaginary parts exchanged, a forward transform is the inverse one, in every bit.
    static void transform_rows_by_table(double* re, double* im, std::int64_t n, std::int64_t rows, bool inverse,
                                        const block_twiddles& twiddles) {
        transform_rows_with(inverse ? im : re, inverse ? re : im, n, rows, -turn, twiddles);
    }
};

} // namespace quenta
