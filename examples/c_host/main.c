/* Runs one job from sign-in to its end, in C11 with the `_Json` functions. The exit status is 0 when the job finished.
 *
 *     VELMORA_USER=… VELMORA_PASSWORD=… c_host [ACCOUNT]
 *
 * VELMORA_CA may name a file of certificate authorities to trust as well, such as that of a local portal.
 */

#include <velmora/CloudAPIFlat.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The callbacks take no pointer of the application's own: what they share is global. */
static VelmoraCloudAPI *api;
static const char *account = "ACC-1001";
static char job[64];
static int exitCode = -1; /* -1: still running */

/* An outcome is a JSON object with a number "errorCode": below 300 is success, 0 is no answer. An application of your
 * own would use a JSON library. */
static bool failed(const char *what, const char *error)
{
    static const char key[] = "\"errorCode\": ";
    const char *at = strstr(error, key);
    const long code = at ? strtol(at + sizeof key - 1, NULL, 10) : 0;
    if (code > 0 && code < 300)
        return false;
    fprintf(stderr, "%s failed: %s\n", what, code == 0 ? lastNetworkError(api) : error);
    exitCode = EXIT_FAILURE;
    return true;
}

static void onFiles(const char *error, const char *files)
{
    if (failed("list of files", error))
        return;
    printf("%s", files);
    exitCode = EXIT_SUCCESS;
}

static void onProgress(const char *progress) { printf("%s", progress); }

/* Comes once. The job has finished, or the error says how else it ended. */
static void onEnd(const char *error, const char *details)
{
    (void)details;
    if (!failed(job, error))
        getJobFileList_Json(api, job, false, onFiles);
}

static void onSubmitted(const char *error, const char *details)
{
    (void)details;
    if (!failed("submission", error))
        followJob_Json(api, job, onProgress, onEnd);
}

static void onJobId(const char *error, const char *jobId)
{
    char definition[1024];
    if (failed("new job id", error))
        return;
    snprintf(job, sizeof job, "%s", jobId); /* its text is ours only until we return */
    snprintf(definition, sizeof definition,
             "{\"jobID\": \"%s\", \"accountID\": \"%s\", \"jobName\": \"Beam from C\", \"mainFile\": \"beam.trninp\","
             " \"solverTag\": \" \", \"operation\": 0, \"numberOfParts\": 4, \"ramEstimate\": 1024,"
             " \"coreHourEstimate\": 0.5, \"simulations\": [\"-x 1\", \"-x 2\"], \"originApplication\": \"c_host\"}",
             job, account);
    submitNewJob_Json(api, definition, onSubmitted);
}

static void onSignedIn(const char *error)
{
    if (!failed("sign-in", error))
        generateNewJobID_Json(api, account, onJobId);
}

/* @param caFile may be null */
static void setOptions(const char *caFile)
{
    char options[4096];
    snprintf(options, sizeof options, "{\"robust\": true, \"caFile\": \"%s\"}", caFile ? caFile : "");
    setClientOptions_Json(api, options);
}

int main(int argc, char **argv)
{
    if (argc > 1)
        account = argv[1];
    api = CreateCloudAPI();
    setOptions(getenv("VELMORA_CA"));
    logUserIn_Json(api, getenv("VELMORA_USER"), getenv("VELMORA_PASSWORD"), getenv("VELMORA_MFA"), onSignedIn);
    while (exitCode < 0)
        waitForEvents(api, 1000); /* every callback runs in here */
    DestroyCloudAPI(api);
    return exitCode;
}
