#include "enhance/rate_product_loop.h"

namespace sonivo {

constinit const RateProducts kAvx2RateProducts{"AVX2", products<8>};

}  // namespace sonivo
