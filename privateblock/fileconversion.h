#pragma once

/// Reads a DICOM file, relocates the private elements of the older generation in its data set and writes the
/// result to `outFile` in the transfer syntax it was read in. Returns 1 on success; 0 with a line in syslog
/// when the input is not readable or no DICOM file, or the output cannot be written.
int convertFilePrivateTags(const char* inFile, const char* outFile);
