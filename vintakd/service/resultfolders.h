#pragma once

#include "vintakd/service/VintakRequest.h"

/// Refuses a conversion whose results would lie where its client does not find them: the folder of each
/// output and cache prefix is to be the one that the client sees under that path. Throws ClassedError with a
/// text that names the folder and the cause. A request that does not say what its client sees passes, and so
/// does a folder that neither sees: the conversion tells of that itself.
void checkResultFolders(const VintakRequest& request);
