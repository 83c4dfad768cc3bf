#include "command/jobTerminal.h"

#include <fcntl.h>
#include <unistd.h>

JobTerminal::JobTerminal() : descriptor_(open("/dev/tty", O_RDWR | O_CLOEXEC)) {}

JobTerminal::~JobTerminal() {
    if (descriptor_ >= 0) close(descriptor_);
}

bool JobTerminal::isOurs() const { return descriptor_ >= 0 && tcgetpgrp(descriptor_) == getpgrp(); }

void JobTerminal::giveTo(pid_t group) const {
    if (descriptor_ >= 0) tcsetpgrp(descriptor_, group);
}

bool JobTerminal::takeBackFrom(pid_t group) const {
    if (descriptor_ < 0 || tcgetpgrp(descriptor_) != group) return false;
    return tcsetpgrp(descriptor_, getpgrp()) == 0;
}
