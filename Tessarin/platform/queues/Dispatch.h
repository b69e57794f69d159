#pragma once
#include "Tessarin/platform/queues/DispatchGroup.h"
#include "Tessarin/platform/queues/DispatchMain.h"
#include "Tessarin/platform/queues/DispatchOnce.h"
#include "Tessarin/platform/queues/DispatchSemaphore.h"
#include "Tessarin/platform/queues/DispatchSource.h"
#include "Tessarin/platform/queues/DispatchTime.h"
#include "Tessarin/platform/queues/Queue.h"
