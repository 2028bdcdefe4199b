#include "platform/shm/detail/Store.h"

namespace Brane::Detail {

#ifdef PIMSM_SHM_STORE_HOOK
void ( *storeHook )() = nullptr;
#endif

}
