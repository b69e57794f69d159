#pragma once
#include "Tessarin/platform/queues/Group.h"
#include "Tessarin/platform/queues/MainQueue.h"
#include "Tessarin/platform/queues/Once.h"
#include "Tessarin/platform/queues/Queue.h"
#include "Tessarin/platform/queues/Semaphore.h"
#include "Tessarin/platform/queues/Source.h"
#include "Tessarin/platform/queues/Time.h"
