// Runs one job from sign-in to its end, with the _Json functions. The exit status is 0 when the job finished.
//
//     VELMORA_USER=… VELMORA_PASSWORD=… Host.exe [ACCOUNT]
//
// VELMORA_CA may name a file of certificate authorities to trust as well, such as that of a local portal.

using System;
using System.Runtime.InteropServices;
using System.Text.RegularExpressions;

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
    [DllImport(Dll, CallingConvention = C)]
    public static extern IntPtr CreateCloudAPI();
    [DllImport(Dll, CallingConvention = C)]
    public static extern void DestroyCloudAPI(IntPtr api);
    [DllImport(Dll, CallingConvention = C)]
    [return: MarshalAs(Bool)]
    public static extern bool waitForEvents(IntPtr api, int milliseconds);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void setClientOptions_Json(IntPtr api, [MarshalAs(Utf8)] string options);
    [DllImport(Dll, CallingConvention = C)]
    public static extern IntPtr lastNetworkError(IntPtr api); // the text stays the library's
    [DllImport(Dll, CallingConvention = C)]
    public static extern void logUserIn_Json(IntPtr api, [MarshalAs(Utf8)] string email,
                                             [MarshalAs(Utf8)] string password, [MarshalAs(Utf8)] string code,
                                             Done done);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void generateNewJobID_Json(IntPtr api, [MarshalAs(Utf8)] string account, Result done);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void submitNewJob_Json(IntPtr api, [MarshalAs(Utf8)] string job, Result done);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void followJob_Json(IntPtr api, [MarshalAs(Utf8)] string job, Done update, Result end);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void getJobFileList_Json(IntPtr api, [MarshalAs(Utf8)] string job,
                                                  [MarshalAs(Bool)] bool all, Result done);
}

static class Host
{
    static readonly IntPtr api = Native.CreateCloudAPI();

    // Begins an operation, waits for its completion and returns its result. Every callback runs inside waitForEvents, on
    // this thread.
    static string Wait(Action<Native.Result> begin)
    {
        string outcome = null, result = null;
        Native.Result done = (error, text) => { outcome = error; result = text; };
        begin(done);
        while (outcome == null)
            Native.waitForEvents(api, 1000);
        GC.KeepAlive(done); // the library keeps a bare pointer: without this the collector could take the delegate
        // A JSON object: below 300 is success, 0 is no answer. An application of your own would use a JSON library.
        int code = int.Parse(Regex.Match(outcome, "\"errorCode\": (-?[0-9]+)").Groups[1].Value);
        if (code <= 0 || code >= 300)
            throw new Exception(code == 0 ? Marshal.PtrToStringAnsi(Native.lastNetworkError(api)) : outcome);
        return result;
    }

    static void Run(string account)
    {
        Func<string, string> variable = Environment.GetEnvironmentVariable;
        Native.setClientOptions_Json(api, "{\"robust\": true, \"caFile\": \"" + variable("VELMORA_CA") + "\"}");
        Native.Done signedIn = null;
        Wait(done => Native.logUserIn_Json(api, variable("VELMORA_USER"), variable("VELMORA_PASSWORD"),
                                           variable("VELMORA_MFA"), signedIn = error => done(error, "")));
        string job = Wait(done => Native.generateNewJobID_Json(api, account, done));
        Wait(done => Native.submitNewJob_Json(api, "{\"jobID\": \"" + job + "\", \"accountID\": \"" + account + "\"," +
            "\"jobName\": \"Beam from C#\", \"mainFile\": \"beam.trninp\", \"solverTag\": \" \", \"operation\": 0," +
            "\"numberOfParts\": 4, \"ramEstimate\": 1024, \"coreHourEstimate\": 0.5, \"simulations\": [\"-x 1\"]," +
            "\"originApplication\": \"csharp_host\"}", done));
        Native.Done progressed = Console.WriteLine;
        Wait(end => Native.followJob_Json(api, job, progressed, end)); // an error unless the job finishes
        Console.WriteLine(Wait(done => Native.getJobFileList_Json(api, job, false, done)));
        GC.KeepAlive(progressed);
        GC.KeepAlive(signedIn);
    }

    static int Main(string[] arguments)
    {
        try {
            Run(arguments.Length > 0 ? arguments[0] : "ACC-1001");
            return 0;
        } catch (Exception failure) {
            Console.Error.WriteLine(failure.Message);
            return 1;
        } finally {
            Native.DestroyCloudAPI(api);
        }
    }
}
