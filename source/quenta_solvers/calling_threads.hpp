// Calling threads: how a thread becomes known to the library, and how its end is noticed.
#pragma once

namespace quenta {

// The first action of every export that may allocate working memory. After the first call on a thread it is a single
// read of per-thread state. It needs quenta_rt_init, which creates the lock that the first attachment takes. Throws
// std::bad_alloc if there is no memory for the first attachment; the next call tries again.
void attach_calling_thread();

} // namespace quenta
