#include <velmora/CloudAPIFlat.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Links only when every export has C linkage. */
#define FLAT_EXPORT(name) (void (*)(void)) name,
void (*const flatAddressesInC[])(void) = {
#include "Exports.inc"
    FLAT_EXPORT(velmoraVersion) 0};

/* C lays a structure out as C++ does when what stands for a list is as large as one. */
const uint64_t jobDetailsSizeInC = sizeof(VelmoraJobDetailsView);

/* An application in C. It keeps what its callbacks share with the handle. */
struct Answer {
    bool arrived;
    int code;
    char result[4096];
};

static int codeIn(const char *error)
{
    const char *code = strstr(error, "\"errorCode\":");
    return code ? atoi(code + strlen("\"errorCode\":")) : 0;
}

static void onResult(const char *error, const char *result)
{
    struct Answer *answer = userData(currentCloudAPI());
    answer->arrived = true;
    answer->code = codeIn(error);
    snprintf(answer->result, sizeof answer->result, "%s", result);
}

static void onDone(const char *error) { onResult(error, ""); }

static bool succeeds(VelmoraCloudAPI *api)
{
    struct Answer *answer = userData(api);
    while (!answer->arrived)
        if (!waitForEvents(api, 10000))
            return false;
    answer->arrived = false;
    return answer->code > 0 && answer->code < 300;
}

/* Deletes a file, polls a job's progress until it is complete, reads a balance. Reports what it did. */
void hostInC(const char *job, const char *file, char report[100])
{
    struct Answer answer = {0};
    char text[200];
    VelmoraCloudAPI *api = CreateCloudAPI();
    setUserData(api, &answer);
    setClientOptions_Json(api, "{\"robust\": true, \"answerTimeout\": 30}");
    logUserIn_Json(api, "ada.field@velmora.example", "turbulence-42", "", onDone);
    strcpy(report, succeeds(api) ? "signed in" : "refused");

    snprintf(text, sizeof text, "{\"jobId\": \"%s\", \"fileName\": \"%s\"}", job, file);
    deleteFile_Json(api, text, onResult);
    if (succeeds(api))
        strcpy(report, "deleted");

    const char *progress = NULL;
    do {
        getJobProgress_Json(api, job, onResult);
        progress = succeeds(api) ? strstr(answer.result, "\"progress\":") : NULL;
    } while (progress && atoi(progress + strlen("\"progress\":")) < 100);
    strcat(report, progress ? ", 100 percent" : ", no progress");

    getAccountBalance_Json(api, "ACC-1001", onResult);
    int transactions = 0;
    if (succeeds(api))
        for (const char *at = answer.result; (at = strstr(at, "\"transactionId\":")); ++at)
            ++transactions;
    snprintf(text, sizeof text, ", %d transactions", transactions);
    strcat(report, text);
    DestroyCloudAPI(api);
}
