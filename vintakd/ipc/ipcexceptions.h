#pragma once

/// What the shared-memory layer throws: empty tag classes, thrown by value and caught by reference. They say
/// what happened by their type alone, so that throwing one never allocates.

/// A wait on the other party, or on a lock, ran out of time.
class TimeoutException {};

/// No channel could be reserved within the gateway's time-out.
class ConnectionTimeoutException {};

/// The segment exists although its creator asked to be the first.
class SharedMemoryAlreadyExistsException {};

/// The segment does not exist, or what carries its name is not a gateway segment.
class SharedMemoryDoesNotExistsException {};

/// The segment exists, but this account may not open it: it belongs to another one.
class SharedMemoryNotAllowedException : public SharedMemoryDoesNotExistsException {};

namespace ipc {

/// Base of what a channel operation throws beside TimeoutException.
class ChannelException {};

/// Both parties sent, or both received, at the same time.
class CommunicationMismatchException : public ChannelException {};

/// The peer signalled an error in place of a message.
class UserException : public ChannelException {};

/// The peer's message was longer than the receiver wants to hold; it was taken off the channel and dropped.
class MessageTooLongException : public ChannelException {};

}  // namespace ipc
