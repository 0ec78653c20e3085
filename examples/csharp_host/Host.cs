// Runs one job from sign-in to its end, with the _Json functions. The exit status is 0 when the job finished.
//
//     VELMORA_USER=… VELMORA_PASSWORD=… Host.exe [ACCOUNT]

using System;
using System.Runtime.InteropServices;
using System.Text.RegularExpressions;
using System.Threading;

static class Native
{
    const string Dll = "velmora"; // velmora.dll beside the program
    const CallingConvention C = CallingConvention.Cdecl;
    const UnmanagedType Utf8 = UnmanagedType.LPUTF8Str;
    const UnmanagedType Bool = UnmanagedType.I1; // one byte, where .NET would take four

    [UnmanagedFunctionPointer(C)]
    public delegate void Done([MarshalAs(Utf8)] string error);
    [UnmanagedFunctionPointer(C)]
    public delegate void Result([MarshalAs(Utf8)] string error, [MarshalAs(Utf8)] string result);
    [UnmanagedFunctionPointer(C)]
    public delegate void Message([MarshalAs(Utf8)] string error, [MarshalAs(Utf8)] string job,
                                 [MarshalAs(Utf8)] string message);

    [DllImport(Dll, CallingConvention = C)]
    public static extern IntPtr CreateCloudAPI();
    [DllImport(Dll, CallingConvention = C)]
    public static extern void DestroyCloudAPI(IntPtr api);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void processEvents(IntPtr api);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void logUserIn_Json(IntPtr api, [MarshalAs(Utf8)] string email,
                                             [MarshalAs(Utf8)] string password, [MarshalAs(Utf8)] string code,
                                             Done done);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void generateNewJobID_Json(IntPtr api, [MarshalAs(Utf8)] string account, Result done);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void submitNewJob_Json(IntPtr api, [MarshalAs(Utf8)] string job, Result done);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void getJobDetails_Json(IntPtr api, [MarshalAs(Utf8)] string job, Result done);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void unsubscribeFromJob(IntPtr api, [MarshalAs(Utf8)] string job);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void subscribeToJob_Json(IntPtr api, [MarshalAs(Utf8)] string job, Message message,
                                                  Message finished);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void getJobFileList_Json(IntPtr api, [MarshalAs(Utf8)] string job,
                                                  [MarshalAs(Bool)] bool all, Result done);
}

class Host
{
    readonly IntPtr api = Native.CreateCloudAPI();
    readonly string account;
    static readonly string[] ends = {"FINISHED", "FAILED", "STOPPED", "ABORTED", "KILLED", "ERROR", "ARCHIVED"};
    static readonly TimeSpan betweenLooks = TimeSpan.FromSeconds(5);
    const int MostFailedLooks = 12;
    string job;
    DateTime? nextLook; // null: there is nothing to look for
    int failedLooks;    // in a row
    int exitCode = -1;  // -1: still running

    // The library keeps bare pointers: were these not fields, the collector would take the delegates.
    readonly Native.Done signedIn;
    readonly Native.Result gotJobId, submitted, gotDetails, gotFiles;
    readonly Native.Message said, finished;

    Host(string account)
    {
        this.account = account;
        signedIn = OnSignedIn;
        gotJobId = OnJobId;
        submitted = OnSubmitted;
        gotDetails = OnDetails;
        said = OnMessage;
        finished = OnFinished;
        gotFiles = OnFiles;
    }

    // An outcome is a JSON object: below 300 is success, 0 is no answer. An application of your own would use a
    // JSON library, here and below.
    static int CodeOf(string error)
    {
        return int.Parse(Regex.Match(error, "\"errorCode\": (-?[0-9]+)").Groups[1].Value);
    }

    bool Failed(string what, string error)
    {
        int code = CodeOf(error);
        if (code > 0 && code < 300)
            return false;
        Console.Error.WriteLine(what + " failed: " + (code == 0 ? "no answer came" : error));
        exitCode = 1;
        return true;
    }

    void OnSignedIn(string error)
    {
        if (!Failed("sign-in", error))
            Native.generateNewJobID_Json(api, account, gotJobId);
    }

    void OnJobId(string error, string id)
    {
        if (Failed("new job id", error))
            return;
        job = id;
        Native.submitNewJob_Json(api, "{\"jobID\": \"" + job + "\", \"accountID\": \"" + account + "\"," +
            "\"jobName\": \"Beam from C#\", \"mainFile\": \"beam.trninp\", \"solverTag\": \" \", \"operation\": 0," +
            "\"numberOfParts\": 4, \"ramEstimate\": 1024, \"coreHourEstimate\": 0.5, \"simulations\": [\"-x 1\"]," +
            "\"originApplication\": \"csharp_host\"}", submitted);
    }

    void OnSubmitted(string error, string details)
    {
        if (Failed("submission", error))
            return;
        Native.subscribeToJob_Json(api, job, said, finished);
        Look();
    }

    // Receives every message, also that of a job that failed or was stopped.
    void OnMessage(string error, string id, string message)
    {
        Console.WriteLine(id + ": " + message);
        if (message.Contains("Job status is"))
            Look();
    }

    // Receives the message of a finished job, or that the connection was lost: the looks go on without messages.
    void OnFinished(string error, string id, string message)
    {
        Console.WriteLine(id + ": " + message);
        Look();
    }

    void Look()
    {
        nextLook = DateTime.UtcNow + betweenLooks;
        Native.getJobDetails_Json(api, job, gotDetails);
    }

    // Only a job's details say for certain that it has ended, and how.
    void OnDetails(string error, string details)
    {
        int code = CodeOf(error);
        if (nextLook == null) // an earlier look has found the end
            return;
        if (code <= 0 || code >= 300)
        {
            if (++failedLooks >= MostFailedLooks)
                Failed("job details", error);
            return;
        }
        failedLooks = 0;
        string status = LatestStatus(details);
        if (Array.IndexOf(ends, status) < 0)
            return;
        nextLook = null;
        Native.unsubscribeFromJob(api, job);
        if (status == "FINISHED")
        {
            Native.getJobFileList_Json(api, job, false, gotFiles);
            return;
        }
        Console.Error.WriteLine(job + " did not finish: its last status is " + status);
        exitCode = 1;
    }

    static string LatestStatus(string details)
    {
        string status = "";
        long latest = -1;
        foreach (Match entry in Regex.Matches(details, "\"jobStatus\": \"([^\"]*)\",\\s*\"jobStatusDate\": ([0-9]+)"))
        {
            long date = long.Parse(entry.Groups[2].Value);
            if (date < latest)
                continue;
            latest = date;
            status = entry.Groups[1].Value;
        }
        return status;
    }

    void OnFiles(string error, string files)
    {
        if (Failed("list of files", error))
            return;
        Console.WriteLine(files);
        exitCode = 0;
    }

    int Run()
    {
        Func<string, string> variable = Environment.GetEnvironmentVariable;
        Native.logUserIn_Json(api, variable("VELMORA_USER"), variable("VELMORA_PASSWORD"), variable("VELMORA_MFA"),
                              signedIn);
        while (exitCode < 0)
        {
            Native.processEvents(api); // every callback runs in here, on this thread
            if (nextLook != null && DateTime.UtcNow >= nextLook)
                Look();
            Thread.Sleep(2);
        }
        Native.DestroyCloudAPI(api);
        return exitCode;
    }

    static int Main(string[] arguments)
    {
        return new Host(arguments.Length > 0 ? arguments[0] : "ACC-1001").Run();
    }
}
