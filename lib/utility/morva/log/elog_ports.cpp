// How the register stands alone: no gravesite. The families that know better take over a port by
// defining it in their own source instead.
#include "base/ports.hpp"

namespace morva::port {

int bury() {
    return 0;
}

}  // namespace morva::port
