#define Eigen EigenAvx512

#include "eigen_peer_table.h"

namespace meridane::bench {

const EigenPeer kEigenAvx512 = kPeer;

}  // namespace meridane::bench
