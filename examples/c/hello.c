/* The first steps in C: logs in, says something to itself, and prints what comes until that has arrived.
       hello API_SERVER USER */
#include <KvPim/kvpim.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void fail(char const* what, kvpim_error const* error) {
    fprintf(stderr, "%s: %s\n", what, error->text);
    exit(1);
}

int main(int count, char** arguments) {
    kvpim_client client;
    kvpim_message* message;
    kvpim_error error;
    char text[512];
    int heard = 0;
    if (count != 3) return 2;

    snprintf(text, sizeof text, "{\"appId\":\"demo\",\"apiServer\":\"%s\"}", arguments[1]);
    if (!kvpim_create(text, &client, &error)) fail("No client", &error);
    snprintf(text, sizeof text,
             "{\"op\":\"loginByToken\",\"id\":1,\"token\":\"0123456789abcdef0123456789abcdef\","
             "\"timeStamp\":1700000000000,\"userId\":\"%s\"}",
             arguments[2]);
    if (!kvpim_request(client, text, &error)) fail("No login", &error);

    while (!heard && kvpim_receive(client, 10000, &message) == KVPIM_RECEIVED) {
        char const* const line = kvpim_message_text(message);
        puts(line);
        if (strstr(line, "\"op\":\"loginByToken\",\"code\":0") != NULL) {
            snprintf(text, sizeof text, "{\"op\":\"sendMessageToPeer\",\"id\":2,\"peerId\":\"%s\",\"text\":\"Hello\"}",
                     arguments[2]);
            if (!kvpim_request(client, text, &error)) fail("Not sent", &error);
        }
        heard = strstr(line, "\"event\":\"messageReceived\"") != NULL;
        kvpim_message_free(message);
    }
    kvpim_destroy(client);
    return heard ? 0 : 1;
}
