#pragma once

#include "tools/broker/BrokerOptions.h"
#include "tools/command/CommandLine.h"

/// Adds the options that name a broker: --broker, --user, --password-file, --ca, --cert, --key, --queue.
void addBrokerOptions(CommandLine& line);

/// What they say. Throws UsageError, also where the program was built without the broker's library.
BrokerOptions brokerOptions(const CommandLine& line);
