#pragma once

// The operating system seam of the network layer: every socket call of the library goes
// through here, with the Linux bodies in SocketPlatform_posix.cpp; no other file of net/
// includes a system header. Addresses and ports cross this seam in network byte order, as the
// socket code keeps them.
//
// The two resolvers can be replaced, so that a test can see which names reach them without
// depending on the machine's name service.

#include <cstddef>
#include <cstdint>

namespace KESTREL {
namespace sockets {

using Handle = int;  // a file descriptor; "no socket" is 0

// The last socket error of the calling thread (errno).
int LastError();

// Starting and stopping the socket library: nothing to do on Linux beyond keeping the count,
// but the calls keep the start-up and clean-up points visible. StartUp gives 0 on
// success.
int StartUp();
void CleanUp();

// New sockets, or -1. Every socket is close-on-exec, so that a program that runs other tools
// does not hand them its connections.
Handle OpenStream();
Handle OpenDatagram();
// 0 on success, else the error code.
int Connect(Handle handle, uint32_t address, uint16_t port);
int Bind(Handle handle, uint32_t address, uint16_t port);
[[nodiscard]] bool Listen(Handle handle, int backlog);
// The accepted handle (or -1 with the error in LastError); the peer's address and port are
// written when the pointers are not null. Interrupted calls are retried.
Handle Accept(Handle handle, uint32_t* address, uint16_t* port);
// Sends all `length` bytes or fails: a call that a signal interrupts (EINTR) is made again,
// and a short send (a blocking send returns short when a signal arrives part-way) goes on with
// the rest, so a message never leaves cut. Never raises SIGPIPE. With `more`, the system is
// told that more data follows at once, so it may hold the bytes back to fill whole segments.
// `length`, or -1 when a call failed (some bytes may have gone out: the connection is then
// unusable).
long Send(Handle handle, const void* data, size_t length, bool more = false);
// The single system call Send makes (send(2) with its flags): replaceable, so that a test can
// give short sends and interruptions; null restores the system's. Gives back the one replaced.
using SendCall = long (*)(Handle handle, const void* data, size_t length, int flags);
SendCall SetSendCall(SendCall call);
// One receive call, retried when interrupted; the number of bytes, 0 at an orderly close, -1.
long Receive(Handle handle, void* data, size_t length);
// The same without blocking: -2 when nothing is waiting.
long ReceiveNow(Handle handle, void* data, size_t length);
// 1 when the handle is readable (or has a pending connection), 0 when `milliseconds` passed
// first, -1 on error. A negative time waits for ever. Interruptions by signals are retried
// with the time that is left.
int WaitReadable(Handle handle, int64_t milliseconds);
void Close(Handle handle);
// Ends both directions of a connection so that a receive blocked on it in another thread
// returns; the handle stays open for its owner to close.
[[nodiscard]] bool Shutdown(Handle handle);
// Ends the receiving direction only: a blocked receive returns as at the peer's close, while
// what is still to be sent can go.
[[nodiscard]] bool ShutdownReading(Handle handle);
// TCP_NODELAY: one PDU per send would otherwise wait for delayed acknowledgements.
[[nodiscard]] bool SetNoDelay(Handle handle);
// TCP_QUICKACK: acknowledges what has arrived now instead of up to 40 ms later. A peer that
// writes a PDU in two sends without TCP_NODELAY holds the second one until the first is
// acknowledged, so a receiver about to wait for it should not delay the acknowledgement.
void QuickAck(Handle handle);
// The local port of a bound socket in host byte order, or 0.
uint16_t LocalPort(Handle handle);
// Two connected stream sockets (tests and the fuzz target use them as an in-process peer).
[[nodiscard]] bool MakePair(Handle pair[2]);

// Names. A resolver writes the first IPv4 address of `name` (network order) and returns true,
// or returns false when the name is unknown.
using HostResolver = bool (*)(const char* name, uint32_t* address);
using ServiceResolver = bool (*)(const char* name, uint16_t* port);
[[nodiscard]] bool ResolveHost(const char* name, uint32_t* address);
[[nodiscard]] bool ResolveService(const char* name, uint16_t* port);
// Replace the resolver (null restores the system's) and give back the one replaced.
HostResolver SetHostResolver(HostResolver resolver);
ServiceResolver SetServiceResolver(ServiceResolver resolver);
// inet_addr: the dotted address in network order, all ones when it does not parse.
uint32_t ParseDottedAddress(const char* text);
uint32_t AnyAddress();  // INADDR_ANY
uint16_t HostToNetwork16(uint16_t value);
uint16_t NetworkToHost16(uint16_t value);

}  // namespace sockets
}  // namespace KESTREL
