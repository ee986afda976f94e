#pragma once

#include "link/sync_socket.h"

// The connection that carries one document's bytes to the printer, and bytes read back from it. The
// server first sends a session id and the switch to transparent mode; from then on the connection is a
// plain pipe, and job data goes through CSyncSocket::Send as it comes.
//
// One spooler thread at a time uses it; the keep-alive worker may close it at any moment, which ends a
// blocked call.
class CDataChannel : public CSyncSocket {
public:
    CDataChannel(LPCWSTR address, DWORD port);
    ~CDataChannel();

    // Connects and takes the two opening messages, not a byte more. Blocks until the server sends or
    // somebody closes the channel. Doesn't disconnect when it fails.
    bool Open();

    // Ends the connection: this is how the server learns of the document's end. Any thread, any time.
    void Close();
    // The same at the end of a document that was sent whole, on the thread of its calls: what the server sent
    // and nobody read doesn't cost the bytes that are still on their way.
    void CloseWhole();

    // What one recv gives, up to `length` bytes. True with 0 bytes when the peer has closed.
    bool Receive(void* buffer, DWORD length, DWORD* received);
    bool Receive(char* value);
    bool Receive(short* value);

    // The server's number for this connection, widened with its sign; -1 until it has come. Written by
    // Open, read by the thread that opens the command channel afterwards.
    LONG sessionId = -1;
};
