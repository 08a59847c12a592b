// Calling threads: how a thread becomes known to the library, and how its end is noticed.
#pragma once

namespace quenta {

// The first action of every entry that may hold working memory. After a thread's first call it is one read of
// per-thread state. Needs quenta_rt_init, which makes the lock that a first attachment takes. Throws std::bad_alloc if
// there is no memory for the first attachment. The next call tries again.
void attach_calling_thread();

} // namespace quenta
