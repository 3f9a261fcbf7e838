#ifndef QEL_IMAGE_BESSEL_H_
#define QEL_IMAGE_BESSEL_H_

namespace qel {

/// The Bessel function of the first kind of order 1, in single precision.
float KernelBessel_Order1(float x);

// Rational approximations that `KernelBessel_Order1` is put together from: J1(x) / x for |x| < 8,
// and the two slowly varying amplitudes of its oscillation from there on.
double KernelBessel_J1(double x);
double KernelBessel_P1(double x);
double KernelBessel_Q1(double x);

}  // namespace qel

#endif  // QEL_IMAGE_BESSEL_H_
