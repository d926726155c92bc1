#pragma once

/// Makes the process keep the heap that a request has used for the next one: to give it back to the system
/// and to take it again costs a page fault for every 4 KiB. Blocks of 32 MiB and more still go back as they
/// are freed.
void keepHeapForNextRequest();

/// Gives back what an unusually large request has left, so that a process keeps no more than some tens of
/// megabytes that it does not use. To be called between requests.
void giveBackSurplusHeap();
