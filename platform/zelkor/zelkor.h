// The object framework, as modules and hosts use it.
#pragma once

#include "platform/zelkor/blocker.h"
#include "platform/zelkor/boot.h"
#include "platform/zelkor/channel.h"
#include "platform/zelkor/classes.h"
#include "platform/zelkor/dispatch.h"
#include "platform/zelkor/host.h"
#include "platform/zelkor/log.h"
#include "platform/zelkor/object.h"
#include "platform/zelkor/word.h"
