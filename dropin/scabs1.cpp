// SCABS1 is a reference BLAS name outside the routine set. |Re z| + |Im z|
// of one element is exactly what SCASUM computes for a vector of length
// one, so the call goes through the layer as that. SCASUM's vector is
// declared writable (as the reference documents it), hence the local copy.
#include "dropin/export.h"
#include "vorn_instable.h"

extern "C" VORN_DROPIN_EXPORT float scabs1_(const float* z) {
  const int one = 1;
  float element[2] = {z[0], z[1]};
  return VORN_instable_scasum(&one, element, &one);
}
