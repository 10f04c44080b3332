#include "fetch.h"

#include <curl/curl.h>
#include <stdio.h>
#include <string.h>

enum { kPatience = 10 }; /* seconds */

int fetchInit(void) {
    return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
}

static size_t take(char* data, size_t unit, size_t count, void* given) {
    Reply* reply = given;
    const size_t used = strlen(reply->text);
    const size_t room = sizeof reply->text - 1 - used;
    const size_t taken = count < room ? count : room;
    (void)unit; /* libcurl's unit is one byte, always */
    memcpy(reply->text + used, data, taken);
    reply->text[used + taken] = '\0';
    return count;
}

Reply fetch(const char* url, const char* body, size_t size) {
    Reply reply = {502, ""};
    long status = 0;
    CURL* curl = curl_easy_init();
    if (curl == NULL) return reply;
    Outgoing* outgoing = outgoingBegin(body == NULL ? "GET" : "POST", url, body, size);
    struct curl_slist* headers = NULL;
    if (outgoingHeader(outgoing) != NULL)
        headers = curl_slist_append(NULL, outgoingHeader(outgoing));

    curl_easy_setopt(curl, CURLOPT_URL, url);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, (long)kPatience);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, take);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply);
    if (body != NULL) {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, (long)size);
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body);
    }
    const CURLcode code = curl_easy_perform(curl);
    if (code == CURLE_OK) {
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        reply.status = status >= 500 ? 502 : (unsigned int)status;
        outgoingEnd(outgoing, status, reply.text, strlen(reply.text), NULL);
    } else {
        snprintf(reply.text, sizeof reply.text, "%s\n", curl_easy_strerror(code));
        outgoingEnd(outgoing, 0, NULL, 0, curl_easy_strerror(code));
    }
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
    return reply;
}
