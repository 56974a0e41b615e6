#include "enhance/rate_product_loop.h"

namespace sonivo {

constinit const RateProducts kSse2RateProducts{"SSE2", products<4>};

}  // namespace sonivo
