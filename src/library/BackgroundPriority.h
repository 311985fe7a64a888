#pragma once

// Loads run beside the window on every core: their threads give way to the main thread, so a long import
// never leaves the window waiting for a processor.
namespace BackgroundPriority {

// Lowers the calling thread's scheduling priority the first time a thread calls it; later calls cost a
// thread-local check. Meant for the threads of the loaders' pools, which only ever run loads.
void lowerCurrentThread();

} // namespace BackgroundPriority
