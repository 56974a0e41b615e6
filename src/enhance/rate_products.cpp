#include "enhance/rate_products.h"

#include "classic/kernels.h"

namespace sonivo {

bool runs_here(const RateProducts& products) {
  return &products != &kAvx2RateProducts || classic::runs_here(classic::kAvx2Kernels);
}

const RateProducts& best_rate_products() {
  static const RateProducts& best = runs_here(kAvx2RateProducts) ? kAvx2RateProducts : kSse2RateProducts;
  return best;
}

}  // namespace sonivo
