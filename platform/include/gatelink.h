/* libgatelink.so.0, the camera's gateway between its web side and a daemon: HTTP/1.x on a UNIX stream socket, one
   request for each connection.

   The query is the part of the request's target after the first '?'.  A POST with a body has the body as its query
   instead.  There is no percent decoding.  The library waits for slow clients on its own thread: the descriptor of
   GATELINK_GetSocketFd becomes readable only when a whole request waits.  A client that is silent for 5 seconds, or
   takes longer than 15 seconds for its request, is dropped.  The library itself answers a head above 8 KiB (431), a
   body above 4 KiB (413), and anything malformed, such as a NUL in the query (400).

   The library holds at most 64 connections, and counts those whose request waits to be read.  If all places are taken,
   a new connection replaces the client that has waited longest without sending its whole request.  That ends when such
   clients have only half of the places; new connections then stay in the socket's backlog.  Any local user may connect.

   A handle has a thread of its own, which takes no signals.  No call blocks, except GATELINK_close, which waits for
   that thread to end.  Only one thread at a time may use a handle. */
#ifndef GATELINK_H
#define GATELINK_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

typedef void* HGateLink;

/* Opens the gateway on a local socket; an existing node at the path is replaced.  Returns 0 with a valid *phGateLink,
   or -1 with a null one: the path is empty, longer than 107 bytes or cannot be bound, or descriptors, memory or threads
   have run out. */
int32_t GATELINK_init(HGateLink* phGateLink, const char* pszPath);

/* Returns a descriptor that is readable while a request waits, or once the gateway has failed.  The library owns it:
   use it in poll or select only. */
int32_t GATELINK_GetSocketFd(HGateLink hGateLink);

/* Takes the next waiting request.  Returns 0 with a query and a connection.  *ppszQuery is a writable text, valid until
   the next GATELINK_read or GATELINK_close.  *pfdRequest is the connection to answer on, blocking with a send timeout
   of 1 second; the caller closes it.  Returns 1 if no request waits, which cannot be while the descriptor is readable.
   Returns -1 if the gateway has failed and no request is left; it must then be opened anew. */
int32_t GATELINK_read(HGateLink hGateLink, char** ppszQuery, int32_t* pfdRequest);

/* Returns the method of the request that was read last, such as "GET"; "" before the first.  Valid until the next
   GATELINK_read or GATELINK_close. */
const char* GATELINK_GetMethod(HGateLink hGateLink);

/* Ends the gateway: drops waiting requests, closes the descriptor, and removes the socket's node unless another gateway
   has replaced that.  Connections from GATELINK_read stay open, but the query is no longer valid.  Null does nothing.
 */
void GATELINK_close(HGateLink hGateLink);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
