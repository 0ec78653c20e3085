/* Runs one job from sign-in to its end, with the functions whose names end in _Json. */
#include <velmora/CloudAPIFlat.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static VelmoraCloudAPI *api;
static char job[64], text[4096];
static int status = -1; /* not finished yet */

/* An application of your own reads the outcome by a JSON library. */
static bool failed(const char *error)
{
    const char *key = "\"errorCode\": ", *at = strstr(error, key);
    const long code = at ? strtol(at + strlen(key), NULL, 10) : 0;
    if (code > 0 && code < 300)
        return false;
    fprintf(stderr, "%s\n", code == 0 ? lastNetworkError(api) : error);
    status = EXIT_FAILURE;
    return true;
}

static void onProgress(const char *progress) { printf("%s", progress); }

static void onEnd(const char *error, const char *details)
{
    if (failed(error)) /* it failed or was stopped, or its end cannot be known */
        return;
    printf("%s", details);
    status = EXIT_SUCCESS;
}

static void onSubmitted(const char *error, const char *details)
{
    (void)details;
    if (!failed(error))
        followJob_Json(api, job, onProgress, onEnd);
}

static void onJobId(const char *error, const char *jobId)
{
    if (failed(error))
        return;
    snprintf(job, sizeof job, "%s", jobId); /* jobId is valid until we return */
    snprintf(text, sizeof text,
             "{\"jobID\": \"%s\", \"accountID\": \"ACC-1001\", \"jobName\": \"Beam\", \"mainFile\": \"beam.trninp\","
             " \"solverTag\": \" \", \"operation\": 0, \"numberOfParts\": 4, \"ramEstimate\": 1024,"
             " \"coreHourEstimate\": 0.5, \"simulations\": [\"-x 1\", \"-x 2\"], \"originApplication\": \"from_c\"}",
             job);
    submitNewJob_Json(api, text, onSubmitted);
}

static void onSignedIn(const char *error)
{
    if (!failed(error))
        generateNewJobID_Json(api, "ACC-1001", onJobId);
}

int main(void)
{
    const char *authority = getenv("VELMORA_CA"); /* such as that of a local portal */
    snprintf(text, sizeof text, "{\"robust\": true, \"caFile\": \"%s\"}", authority ? authority : "");
    api = CreateCloudAPI();
    setClientOptions_Json(api, text);
    logUserIn_Json(api, getenv("VELMORA_USER"), getenv("VELMORA_PASSWORD"), getenv("VELMORA_MFA"), onSignedIn);
    while (status < 0)
        waitForEvents(api, 1000); /* every callback runs in here */
    DestroyCloudAPI(api);
    return status;
}
