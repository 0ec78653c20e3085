"""The library for Python, over its flat functions; the standard library only.

    with Session() as session:
        session.sign_in(user, password)
        job = session.new_job_id(account)

Each method waits for its answer and returns it, or raises Failure.
"""

import ctypes
import json
import os
import time

ERROR = ctypes.CFUNCTYPE(None, ctypes.c_char_p)
RESULT = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_char_p)
MESSAGE = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_char_p)
PROGRESS = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_int32)

FUNCTIONS = {  # what follows the handle
    "DestroyCloudAPI": [],
    "processEvents": [],
    "logUserIn_Json": [ctypes.c_char_p] * 3 + [ERROR],
    "generateNewJobID_Json": [ctypes.c_char_p, RESULT],
    "submitNewJob_Json": [ctypes.c_char_p, RESULT],
    "getJobDetails_Json": [ctypes.c_char_p, RESULT],
    "getJobFileList_Json": [ctypes.c_char_p, ctypes.c_bool, RESULT],
    "subscribeToJob_Json": [ctypes.c_char_p, MESSAGE, MESSAGE],
    "unsubscribeFromJob": [ctypes.c_char_p],
    "uploadFile_Json": [ctypes.c_char_p, PROGRESS, RESULT],
    "downloadFile_Json": [ctypes.c_char_p, PROGRESS, RESULT],
}


ENDS = ("FINISHED", "FAILED", "STOPPED", "ABORTED", "KILLED", "ERROR", "ARCHIVED")
SECONDS_BETWEEN_LOOKS = 5
MOST_FAILED_LOOKS = 12


class Failure(Exception):
    """An operation that did not succeed; `code` 0 says that no answer came."""

    def __init__(self, error):
        self.code = error["errorCode"]
        super().__init__(f'{error["errorTitle"] or "no answer came"}: {error["errorMessage"]} ({self.code})')


class Session:
    def __init__(self, library=None):
        self._library = ctypes.CDLL(library or os.environ.get("VELMORA_LIBRARY", "libvelmora.so.1"))
        self._library.CreateCloudAPI.restype = ctypes.c_void_p
        for name, arguments in FUNCTIONS.items():
            function = getattr(self._library, name)
            function.argtypes = [ctypes.c_void_p] + arguments
            function.restype = None
        self._api = self._library.CreateCloudAPI()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._library.DestroyCloudAPI(self._api)  # no callback runs any more
        self._api = None

    def sign_in(self, user, password, code=""):
        self._wait("logUserIn_Json", user, password, code, done=ERROR)

    def new_job_id(self, account):
        return self._wait("generateNewJobID_Json", account)

    def submit(self, definition):
        return json.loads(self._wait("submitNewJob_Json", json.dumps(definition)))

    def files(self, job, everything=False):
        return json.loads(self._wait("getJobFileList_Json", job, everything))["fileList"]

    def upload(self, path, job, on_progress=lambda sent: None):
        file = {"localFileLocation": os.path.abspath(path), "cloudFileJobID": job}
        self._wait("uploadFile_Json", json.dumps(file), PROGRESS(lambda _, sent: on_progress(sent)))

    def download(self, job, name, path, on_progress=lambda received: None):
        file = {"localFileLocation": os.path.abspath(path), "cloudFileDetails": {"jobId": job, "fileName": name}}
        self._wait("downloadFile_Json", json.dumps(file), PROGRESS(lambda _, received: on_progress(received)))

    def status(self, job):
        """The job's newest status; empty when it has none yet."""
        history = json.loads(self._wait("getJobDetails_Json", job))["jobStatus"]
        # max() takes the first of equals, and the later entry counts.
        return max(reversed(history), key=lambda entry: entry["jobStatusDate"], default={"jobStatus": ""})["jobStatus"]

    def follow(self, job, on_message):
        """Calls on_message with each of the job's messages until the job has ended. Returns its last status."""
        look_at_once = []

        def on_text(text):
            on_message(text)
            if "Job status is" in text:
                look_at_once.append(text)

        message = MESSAGE(lambda _error, _job, text: on_text(text.decode()))
        # A finished job or a lost connection. Only the job's details say for certain that it has ended, and how.
        finished = MESSAGE(lambda _error, _job, text: (on_message(text.decode()), look_at_once.append(text)))
        self._library.subscribeToJob_Json(self._api, job.encode(), message, finished)
        failed_looks = 0
        try:
            while True:
                look_at_once.clear()
                try:
                    status, failed_looks = self.status(job), 0
                    if status in ENDS:
                        return status
                except Failure:
                    failed_looks += 1
                    if failed_looks >= MOST_FAILED_LOOKS:
                        raise
                due = time.monotonic() + SECONDS_BETWEEN_LOOKS
                self._pump(lambda: look_at_once or time.monotonic() >= due)
        finally:
            self._library.unsubscribeFromJob(self._api, job.encode())

    def _pump(self, is_done):
        while not is_done():
            self._library.processEvents(self._api)  # every callback runs in here
            time.sleep(0.002)

    def _wait(self, name, *arguments, done=RESULT):
        answers = []

        def on_complete(*texts):  # the texts are ours only until this returns; ctypes has copied them
            answers.append([text.decode() for text in texts])

        # ctypes lets go of a callback with its last reference: these outlive the call.
        callbacks = [done(on_complete)]
        texts = [value.encode() if isinstance(value, str) else value for value in arguments]
        getattr(self._library, name)(self._api, *texts, *callbacks)
        self._pump(lambda: answers)
        error = json.loads(answers[0][0])
        if not 0 < error["errorCode"] < 300:
            raise Failure(error)
        return answers[0][-1]
