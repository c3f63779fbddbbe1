#include "calib/sonic_tilt.h"

#include <math.h>

extern "C" int sonic_tilt_matrix(double lean, double azimuth, float m[9]) {
  const double s = sin(lean), c = cos(lean);
  const double sb = sin(azimuth), cb = cos(azimuth);
  const double k[3] = {s * cb, s * sb, c};
  double i[3] = {c * c + s * s * sb * sb, -s * s * sb * cb, -s * c * cb};
  const double len = sqrt(i[0] * i[0] + i[1] * i[1] + i[2] * i[2]);
  if (len > 1e-12) {
    for (double& v : i) v /= len;
  } else {
    // Lying on its side towards x: any unit vector across k will do.
    i[0] = 0.0;
    i[1] = 0.0;
    i[2] = cb < 0.0 ? 1.0 : -1.0;
  }
  const double j[3] = {k[1] * i[2] - k[2] * i[1], k[2] * i[0] - k[0] * i[2], k[0] * i[1] - k[1] * i[0]};
  for (int col = 0; col < 3; ++col) {
    m[col] = static_cast<float>(i[col]);
    m[3 + col] = static_cast<float>(j[col]);
    m[6 + col] = static_cast<float>(k[col]);
  }
  return fabs(lean) < 1e-5 ? 1 : 0;
}
