#include "OstaVell/Support/MenuTracking.h"

namespace vell {

MenuTracking* MenuTracking::instance() {
    static MenuTracking* p = new MenuTracking;
    return p;
}

} // namespace vell
