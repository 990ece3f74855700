/** @file
   The C interface of Kv PIM: one client object that takes requests and gives answers and events, all of them texts in
   JSON. It is made for other languages and for programs in C; a program in C++ uses <KvPim/KvPimKit.h>, which is faster
   and has types. Which requests, answers and events there are is the same for `kvpim console`: see "The command line
   client" in the documentation, and `kvpim_interface`.

       kvpim_client client;
       kvpim_message* message;
       if (!kvpim_create("{\"appId\":\"demo\",\"apiServer\":\"http://127.0.0.1:8600\"}", &client, &error)) ...
       kvpim_request(client, "{\"op\":\"loginByToken\",\"id\":1,\"token\":...}", &error);
       while (kvpim_receive(client, KVPIM_FOREVER, &message) == KVPIM_RECEIVED) {
           puts(kvpim_message_text(message));
           kvpim_message_free(message);
       }

   Threads: every function may be called from any thread, at any moment, inside callbacks too, unless it says otherwise.

   Memory: nothing that is given to a function is kept; a text ends with a zero byte and is UTF-8. What `kvpim_receive`
   gives belongs to the caller, who ends it with `kvpim_message_free`; its text and data live as long as it does. A
   client is a number, not a pointer: one that was destroyed is known to be, and nothing happens to it. The texts of
   `kvpim_version` and `kvpim_interface` live for ever. No other memory changes hands.

   Errors: a function that can fail returns false and writes the reason into `error`, which may be NULL. No exception
   leaves it.

   Fork: a child process has the clients of its parent by name only, and cannot make any while its parent had made one:
   fork first. */
#ifndef KVPIM_KVPIM_H
#define KVPIM_KVPIM_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define KVPIM_EXPORT __attribute__((visibility("default")))
#else
#define KVPIM_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** A client, by its number. Zero is none. */
typedef struct kvpim_client {
    uint64_t number;
} kvpim_client;

/** An answer or an event that was received. */
typedef struct kvpim_message kvpim_message;

/** What kind of thing went wrong. */
typedef enum kvpim_error_kind {
    KVPIM_ERROR_NONE = 0,
    /** What was given cannot be used: it is NULL, not UTF-8, not JSON, or not what the function takes. */
    KVPIM_ERROR_ARGUMENT = 1,
    /** The library makes no client of these options, such as an API server that is not an address. */
    KVPIM_ERROR_CREATE = 2,
    /** There is no such client, or no more. */
    KVPIM_ERROR_ENDED = 3,
    /** The client belongs to the process that this one was forked from. */
    KVPIM_ERROR_FORKED = 4,
    /** The system has no more memory, descriptors or threads. */
    KVPIM_ERROR_SYSTEM = 5
} kvpim_error_kind;

/** Why something failed, for people to read: cut off where it is longer. */
typedef struct kvpim_error {
    kvpim_error_kind kind;
    char text[508];
} kvpim_error;

/** The version of the library, such as "1.0.0". */
KVPIM_EXPORT char const* kvpim_version(void);

/** What there is, as JSON, for those who generate wrappers or check them: "operations", each with its "name", its
    "arguments" ("name", "type", "optional") and the fields of its "answer"; "events", each with its "name" and
    "fields"; "callbacks" of the client, of channels and of invitations, as `delegate` arguments name them; "options" of
    `kvpim_create`, each with its "name" and "type"; "codes": for each operation, what its codes other than 0 are called
    and mean. */
KVPIM_EXPORT char const* kvpim_interface(void);

/** Makes a client. `options` is an object in JSON: "appId", and what `KvPimOptions` has that can be said in JSON; the
    page "The C interface" lists the fields. Two are of this interface: "polled", which leaves the client to the
    caller's `kvpim_poll`, where it otherwise runs on a thread of the library that all such clients share; and
    "attachData", which has the raw data of messages beside their text (`kvpim_message_data`), not in it. */
KVPIM_EXPORT bool kvpim_create(char const* options, kvpim_client* client, kvpim_error* error);

/** Ends the client, without logging out: what is pending is not answered, and who waits in `kvpim_receive` is told
    KVPIM_ENDED. Waits for nothing but a callback of this client that is at work on another thread; afterwards none is
    called. A client that does not exist is none to destroy. */
KVPIM_EXPORT void kvpim_destroy(kvpim_client client);

/** Begins what the text asks for: {"op":"sendMessageToPeer","id":7,"peerId":"bob","text":"Hello"}. Never waits; the
    answer is received as a message, with the same "id". False when it is no request: nothing has happened then. */
KVPIM_EXPORT bool kvpim_request(kvpim_client client, char const* request, kvpim_error* error);

/** The same with raw data for an operation that takes "rawData", which spares both sides its Base64 form. */
KVPIM_EXPORT bool kvpim_request_with_data(kvpim_client client, char const* request, void const* data, size_t size,
                                          kvpim_error* error);

/** How many requests were begun and are not answered yet. */
KVPIM_EXPORT size_t kvpim_pending(kvpim_client client);

/** Time-outs of `kvpim_receive` and `kvpim_poll`, in milliseconds; every negative one is for ever. */
enum { KVPIM_AT_ONCE = 0, KVPIM_FOREVER = -1 };

/** How `kvpim_receive` ended. */
typedef enum kvpim_outcome {
    /** There is a message. */
    KVPIM_RECEIVED = 0,
    /** The time was over first. */
    KVPIM_NOTHING = 1,
    /** The client was destroyed, was asked to "quit", or never was. */
    KVPIM_ENDED = 2
} kvpim_outcome;

/** Takes the next answer or event, and waits for it as long as `milliseconds` says. `message` is set to NULL where
    there is none. Several threads may wait; each message goes to one of them.
    What is not received waits: when it takes more memory than "maxUnhandledBytes" of the network options, nothing more
    is read from the server until half of it was received. */
KVPIM_EXPORT kvpim_outcome kvpim_receive(kvpim_client client, int64_t milliseconds, kvpim_message** message);

/** One line of JSON, without a line break: an object with "id" and "op", or with "event". Never NULL. */
KVPIM_EXPORT char const* kvpim_message_text(kvpim_message const* message);

/** How long the text is, in bytes. */
KVPIM_EXPORT size_t kvpim_message_length(kvpim_message const* message);

/** The raw data of the message that the text tells of, of a client with "attachData"; NULL where there is none. */
KVPIM_EXPORT void const* kvpim_message_data(kvpim_message const* message, size_t* size);

/** Ends a message; NULL is none. */
KVPIM_EXPORT void kvpim_message_free(kvpim_message* message);

/** A descriptor that is readable while `kvpim_receive` has something; of a polled client: while `kvpim_poll` has
    something to do. It belongs to the client: wait for it, and do nothing else with it. -1 when there is none. */
KVPIM_EXPORT int kvpim_fd(kvpim_client client);

/** Does the work of a client that was made with "polled": waits for some as long as `milliseconds` says, and does what
    is there. One thread at a time: another one waits for its turn. False when the client does not exist or is not
    polled. */
KVPIM_EXPORT bool kvpim_poll(kvpim_client client, int64_t milliseconds);

/** Gets each message, instead of `kvpim_receive`: on the thread that the clients share, which serves their connections
    too, so it must not wait; of a polled client, inside `kvpim_poll`. The message is the callee's until it returns. */
typedef void (*kvpim_callback)(void* context, kvpim_message const* message);

/** Has all messages from now on, and those that wait, given to `callback`; NULL for `kvpim_receive` again. */
KVPIM_EXPORT bool kvpim_set_callback(kvpim_client client, kvpim_callback callback, void* context, kvpim_error* error);

/** Gets the lines of the log or what the library prints. `kind`: of the log its level (1 information, 2 a warning, 4 an
    error, 8 critical); of prints 1 for standard output, 2 for standard error. Called by the thread that it happens on,
    several at a time among them: it must neither wait nor call the library. Whoever sets another waits until no thread
    is inside the former one, whose context may go then. */
typedef void (*kvpim_line_callback)(void* context, int kind, char const* line);

/** A line callback for who wants none of the lines. */
KVPIM_EXPORT void kvpim_ignore_line(void* context, int kind, char const* line);

/** Who gets the lines that the log's filter lets through ("setLogFilters"), instead of standard error and the file;
    NULL for these two again. Of the process. */
KVPIM_EXPORT void kvpim_set_log_callback(kvpim_line_callback callback, void* context);

/** Who gets the lines that the library prints, given without their end; NULL for standard output and standard error.
    Of the process; before the first client, so that nothing is printed before. */
KVPIM_EXPORT void kvpim_set_console_callback(kvpim_line_callback callback, void* context);

#ifdef __cplusplus
}
#endif

#endif
