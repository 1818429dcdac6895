#include <nv/kernel.h>

#include <nvhost/environment.h>

void KernelX::gettime(timespec* now) {
    *now = nv::hosting::environment().clock->wallTime();
}
