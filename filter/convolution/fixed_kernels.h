#ifndef QEL_FILTER_CONVOLUTION_FIXED_KERNELS_H_
#define QEL_FILTER_CONVOLUTION_FIXED_KERNELS_H_

namespace qel {

/// Weights of the largest of the kernels below.
inline constexpr int kMostFixedWeights = 25;

/// The arguments of a filter that brings its own kernel: `size` x `size` weights, row by row.
struct FixedKernel {
  int size;
  int weights[kMostFixedWeights];
  int divisor;
  int offset;
};

inline constexpr FixedKernel kEmboss = {3,
                                        {0, 0, -1,  //
                                         0, 0, 0,   //
                                         1, 0, 0},
                                        0,
                                        127};
inline constexpr FixedKernel kBlur = {3,
                                      {1, 1, 1,  //
                                       1, 1, 1,  //
                                       1, 1, 1},
                                      9,
                                      0};
inline constexpr FixedKernel kSoften = {3,
                                        {1, 1, 1,  //
                                         1, 8, 1,  //
                                         1, 1, 1},
                                        16,
                                        0};
inline constexpr FixedKernel kSharpen = {3,
                                         {-1, -1, -1,  //
                                          -1, 15, -1,  //
                                          -1, -1, -1},
                                         7,
                                         0};
// Deliberate: the middle row of level 2 begins with 2 where symmetry would ask for 7, and its
// divisor is 273 although the weights make 268. The result is a little darker, as hosts know it.
inline constexpr FixedKernel kGaussianBlur[] = {{3,
                                                 {1, 2, 1,  //
                                                  2, 4, 2,  //
                                                  1, 2, 1},
                                                 16,
                                                 0},
                                                {5,
                                                 {0, 1, 2, 1, 0,  //
                                                  1, 3, 4, 3, 1,  //
                                                  2, 4, 8, 4, 2,  //
                                                  1, 3, 4, 3, 1,  //
                                                  0, 1, 2, 1, 0},
                                                 52,
                                                 0},
                                                {5,
                                                 {1, 4,  7,  4,  1,  //
                                                  4, 16, 26, 16, 4,  //
                                                  2, 26, 41, 26, 7,  //
                                                  4, 16, 26, 16, 4,  //
                                                  1, 4,  7,  4,  1},
                                                 273,
                                                 0},
                                                {5,
                                                 {2, 4,  5,  4,  2,  //
                                                  4, 9,  12, 9,  4,  //
                                                  5, 12, 15, 12, 5,  //
                                                  4, 9,  12, 9,  4,  //
                                                  2, 4,  5,  4,  2},
                                                 159,
                                                 0}};

}  // namespace qel

#endif  // QEL_FILTER_CONVOLUTION_FIXED_KERNELS_H_
