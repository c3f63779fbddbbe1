// The rotation that levels a leaning sonic anemometer.
#ifndef HERON_CALIB_SONIC_TILT_H
#define HERON_CALIB_SONIC_TILT_H

#ifdef __cplusplus
extern "C" {
#endif

// Fills m (3 x 3, row-major) with the rotation that takes wind measured in
// the frame of an instrument whose vertical axis leans by angle lean
// (radians) towards azimuth (radians, in the instrument's own frame) into the
// level frame: the third row is the true vertical as the instrument sees it,
// so m maps it to (0, 0, 1).  Returns 1 when the lean is below 1e-5 rad and
// the matrix need not be applied, else 0; m is filled in both cases.
int sonic_tilt_matrix(double lean, double azimuth, float m[9]);

#ifdef __cplusplus
}
#endif

#endif
