#pragma once

#include "interaction/ServerInteraction.h"

void describeCall(Quenvale::Interceptor::SDK::ServerInteraction& call);
