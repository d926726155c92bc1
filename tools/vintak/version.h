#pragma once

/// Prints what `vintak --version` says; an exit code.
int printVersion();
