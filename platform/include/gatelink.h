/* libgatelink.so.0, the camera's gateway between its web side and a daemon: HTTP/1.x on a UNIX stream socket, one
   request a connection.

   The query is what follows the first '?' of the request's target; of a POST it is the body, or the target's query
   where there is no body.  There is no percent decoding.  Slow clients are waited for off the caller's thread: the
   descriptor of GATELINK_GetSocketFd turns readable only when a whole request waits.  A client that is silent for 5
   seconds is dropped. A head above 8 KiB, a body above 4 KiB, and what is malformed (a NUL in the query among it) is
   answered here: 431, 413, 400.  At most 64 connections are waited for at a time, requests that wait to be read among
   them.  Where all are taken, one more takes the place of the client that has not sent its request for longest, down to
   half of the places; beyond that it stays in the socket's backlog.  Any local user may connect.

   A handle has a thread of its own that takes no signals.  No call blocks, but for GATELINK_close, which waits for that
   thread to end.  One thread at a time may use a handle. */
#ifndef GATELINK_H
#define GATELINK_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

typedef void* HGateLink;

/* Opens the gateway on a local socket; a node at the path is replaced.  0: *phGateLink is valid.  Else it is null: the
   path is empty, longer than 107 bytes or not to be bound, or descriptors, memory or threads have run out. */
int32_t GATELINK_init(HGateLink* phGateLink, const char* pszPath);

/* A descriptor that is readable while a request waits, or once the gateway has failed.  Owned by the library: poll or
   select it, nothing else. */
int32_t GATELINK_GetSocketFd(HGateLink hGateLink);

/* Takes the next waiting request.  0: *ppszQuery is a writable text, valid until the next GATELINK_read or
   GATELINK_close, and *pfdRequest is the connection to answer on, blocking with a send time-out of 1 second, now the
   caller's to close. 1: no request waits, which cannot be while the descriptor is readable.  -1: the gateway has
   failed, all that waited has been read, and it needs to be opened anew. */
int32_t GATELINK_read(HGateLink hGateLink, char** ppszQuery, int32_t* pfdRequest);

/* The method of the request read last, as "GET"; "" before the first.  Valid until the next
   GATELINK_read or GATELINK_close. */
const char* GATELINK_GetMethod(HGateLink hGateLink);

/* Ends the gateway: requests in waiting are dropped, the descriptor is closed, and the socket's node is removed unless
   another gateway has replaced it.  What GATELINK_read handed out stays open; its query ends here.  Null does nothing.
 */
void GATELINK_close(HGateLink hGateLink);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
