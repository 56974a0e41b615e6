#define Eigen EigenAvx2

#include "eigen_peer_table.h"

namespace meridane::bench {

const EigenPeer kEigenAvx2 = kPeer;

}  // namespace meridane::bench
