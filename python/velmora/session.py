"""A session: the class that applications use."""

import asyncio
import contextlib
import ctypes
import dataclasses
import json
import os
import pathlib
import weakref
from typing import Any, AsyncGenerator, AsyncIterator, Awaitable, Callable, TypeVar

from . import _library
from ._library import CHANGE, FLAG, MESSAGE, PROGRESS, RESULT, TEXT, Operation, Worker, text
from .errors import JobEnded, VelmoraError
from .records import (AccountBalance, AccountDetails, ClientOptions, CloudFile, FileUploadDetails, HpcDetails, ItemTag,
                      JobDetails, JobProgress, JobSubmit, PortalTarget, ProxyDefinition, SessionChange,
                      SimulationAbortState, SimulationDetails, UserDetails)

T = TypeVar("T")
OnProgress = Callable[[int], None] | None
END = object()


def version() -> str:
    """The version of the library that is loaded."""
    return text(_library.load().velmoraVersion())


def latest_status(of: JobDetails | SimulationDetails) -> str:
    """The newest status of a job or a simulation, as the service spells it; empty when there is none."""
    dated = ([(each.job_status_date, each.job_status) for each in of.job_status] if isinstance(of, JobDetails) else
             [(each.simulation_status_date, each.simulation_status) for each in of.simulation_status])
    return max(reversed(dated), key=lambda each: each[0], default=(0, ""))[1]  # the later of two with the same date


class Session:
    """A session with the service, signed out at first. Close it, or use it with `async with`.

    Its methods are coroutines, for any asyncio loop, such as the one that a notebook already runs. Each raises
    `VelmoraError`. The library itself works on a thread of the session's own.

    What is cancelled: a cancelled upload, download or iteration ends in the library too. Another operation is sent all
    the same, and its answer is dropped.
    """

    def __init__(self, *, options: ClientOptions | None = None, ca_file: str | os.PathLike[str] = "",
                 portal: PortalTarget = PortalTarget.PRODUCTION, library: str = "") -> None:
        """
        options: how to deal with bad networks; `ClientOptions.robust()` without
        ca_file: a file of certificate authorities to trust as well, such as that of a local portal
        portal: the environment variable VELMORA_API_URL, a host, takes precedence
        library: the path of the shared library, instead of the one that came with this package
        """
        chosen = options or ClientOptions.robust()
        if ca_file:
            chosen = dataclasses.replace(chosen, ca_file=os.fspath(ca_file))
        definition, target = chosen.to_json().encode(), ctypes.c_int32(portal)
        self._worker = worker = Worker(_library.load(library))
        self._library = worker.library
        worker.post(lambda: worker.library.setClientOptions_Json(worker.handle, definition))
        worker.post(lambda: worker.library.setAPIPortal(worker.handle, ctypes.byref(target)))
        weakref.finalize(self, worker.close)

    async def __aenter__(self) -> "Session":
        return self

    async def __aexit__(self, *_: object) -> None:
        await self.close()

    async def close(self) -> None:
        """Ends what is under way, with `SessionClosed`, and the session."""
        self._worker.close()
        await asyncio.wrap_future(self._worker.finished)

    # Sign-in

    async def sign_in(self, email: str, password: str, code: str = "") -> str:
        """Signs in; the token is renewed from then on. Writes a line to standard output.

        code: a one-time code, where `needs_code`
        Returns the refresh token: keep it as safe as the password. `resume` signs in with it later.
        """
        return await self._call("logUserIn_Json", email, password, code, read=_refresh_token, kind=TEXT)

    async def resume(self, refresh_token: str) -> str:
        """Signs in with the refresh token of an earlier sign-in. Returns the one to keep now."""
        return await self._call("resumeSession_Json", refresh_token, read=_refresh_token, kind=TEXT) or refresh_token

    async def needs_code(self, email: str) -> bool:
        """Whether the user needs a one-time code to sign in. Works signed out."""
        return await self._call("checkMFAEnabled", email, read=bool, kind=FLAG)

    async def sign_out(self) -> None:
        """Forgets the tokens, and the keys and addresses of the user's transfers. Iterations over jobs end."""

        def run() -> None:
            self._library.clearActiveAccount(self._worker.handle)
            self._worker.abandon("subscribeToJob_Json", VelmoraError(400, "Signed Out", "The user signed out"))

        await self._done(run)

    async def is_signed_in(self) -> bool:
        """Whether the latest sign-in or renewal has ended without a refusal."""
        return await self._done(lambda: bool(self._library.isUserLoggedIn(self._worker.handle)))

    def changes(self) -> AsyncIterator[SessionChange]:
        """Sign-ins, renewals and sign-outs, as they happen. A later call ends the iteration of an earlier one."""
        return self._stream("onSessionChanged", (), lambda put, _: (CHANGE(lambda change: put(SessionChange(change))),),
                            lambda: self._library.onSessionChanged(self._worker.handle, None))

    async def network_is_up(self) -> bool:
        """Whether the service answers. Waits for the answer, and other calls of the session wait meanwhile."""
        return await self._done(lambda: bool(self._library.currentNetworkStatus(self._worker.handle) == 1))

    async def apply_proxy(self, proxy: ProxyDefinition) -> None:
        """Sets the proxy of the whole process, for all sessions."""
        definition = proxy.to_json().encode()
        await self._done(lambda: bool(self._library.applyProxy_Json(self._worker.handle, definition)))

    # Accounts and users

    async def user(self) -> UserDetails:
        """The signed-in user."""
        return await self._call("getCurrentUserDetails_Json", read=UserDetails.from_json)

    async def modify_user(self, *, surname: str, forename: str, company_name: str) -> UserDetails:
        """Changes the signed-in user's names. Returns the user after the change."""
        return await self._call("modifyCurrentUserDetails_Json", surname, forename, company_name,
                                read=UserDetails.from_json)

    async def accounts(self) -> list[AccountDetails]:
        """The accounts that the user may work under."""
        return await self._call("getAccountList_Json", read=AccountDetails.list_from_json)

    async def balance(self, account_id: str) -> AccountBalance:
        """The account's core hours and its recent transactions."""
        return await self._call("getAccountBalance_Json", account_id, read=AccountBalance.from_json)

    async def clusters(self, account_id: str) -> list[HpcDetails]:
        """The clusters that the account may use."""
        return await self._call("getHpcList_Json", account_id, read=HpcDetails.list_from_json)

    async def preferred_clusters(self, account_id: str) -> list[HpcDetails]:
        """The clusters that the account prefers."""
        return await self._call("getHpcPreferenceList_Json", account_id, read=HpcDetails.list_from_json)

    async def send_event(self, event_type: str, source: str, value: str = "") -> None:
        """Reports to the service something that the user did, for its statistics."""
        await self._call("sendUserEvent_Json", event_type, source, value, read=lambda _: None, kind=TEXT)

    # Jobs

    async def new_job_id(self, account_id: str, cluster: str = "") -> str:
        """Reserves an id for a new job. Upload the job's files under it first, then submit the job with it.

        cluster: the id of the cluster that the job is to run on; the service chooses without
        """
        if cluster:
            return await self._call("generateNewJobIDForHpc_Json", account_id, cluster, read=str)
        return await self._call("generateNewJobID_Json", account_id, read=str)

    async def submit(self, job: JobSubmit) -> JobDetails:
        """Validates, then submits. Writes what is submitted to standard output. An invalid job raises with code 400
        and all failed checks in the message; nothing is sent."""
        definition = json.loads(job.to_json())
        definition["numberOfParts"] = job.cores_required  # where an MPI job states them
        return await self._call("submitNewJob_Json", json.dumps(definition), read=JobDetails.from_json)

    async def job(self, job_id: str) -> JobDetails:
        """One job: what was submitted, its simulations, and the status history of all of them."""
        return await self._call("getJobDetails_Json", job_id, read=JobDetails.from_json)

    async def jobs(self) -> list[JobDetails]:
        """All jobs of the user."""
        return await self._call("getAllJobDetails_Json", read=JobDetails.list_from_json)

    async def archive(self, job_id: str) -> list[JobDetails]:
        """Archives a job. Returns the jobs that the service answers with."""
        return await self._call("archiveJob_Json", job_id, read=JobDetails.list_from_json)

    async def stop(self, job_id: str) -> list[SimulationAbortState]:
        """Stops all simulations of a job."""
        return await self._call("killJob_Json", job_id, read=SimulationAbortState.list_from_json)

    async def stop_simulation(self, job_id: str, simulation_id: str) -> SimulationAbortState:
        """Stops one simulation of a job; the others go on."""
        return await self._call("killSimulation_Json", job_id, simulation_id, read=SimulationAbortState.from_json)

    async def progress(self, job_id: str) -> JobProgress:
        """The progress of each simulation of a job, as last reported to the service."""
        return await self._call("getJobProgress_Json", job_id, read=JobProgress.from_json)

    async def follow(self, job_id: str) -> AsyncIterator[JobProgress]:
        """The progress of all simulations of a job whenever it has grown, until the job has finished: over lost
        connections, a service that does not answer, a machine that sleeps. A job that ends in another way raises
        `JobEnded`, one whose end cannot be known `VelmoraError`. A later call for the same job ends the iteration of an
        earlier one. The job goes on when the iteration does not."""
        async with contextlib.aclosing(self._follow(job_id)) as items:
            async for each in items:
                if isinstance(each, JobProgress):
                    yield each

    async def wait(self, job_id: str) -> JobDetails:
        """Waits for a job to finish. It is one with `follow`, and raises as that does. Returns the finished job."""
        jobs = [each async for each in self._follow(job_id) if isinstance(each, JobDetails)]
        return jobs[0]

    def _follow(self, job_id: str) -> AsyncGenerator[JobProgress | JobDetails, None]:
        def callbacks(put: Callable[[Any], None], end: Callable[[], None]) -> tuple[Any, ...]:
            def on_end(error: bytes, details: bytes) -> None:
                end()
                job = JobDetails.from_json(text(details))
                try:
                    self._worker.succeeded(error)
                    put(job)
                    put(END)
                except VelmoraError as raised:
                    put(JobEnded(raised.code, raised.title, raised.message, job) if job.job_id else raised)

            return TEXT(lambda progress: put(JobProgress.from_json(text(progress)))), RESULT(on_end)

        return self._stream("followJob_Json", (job_id.encode(),), callbacks,
                            lambda: self._library.stopFollowing(self._worker.handle, job_id.encode()))

    def messages(self, job_id: str) -> AsyncIterator[str]:
        """The messages that the service sends about a job, unchanged. The last one is that of a finished job. A lost
        connection raises. A job that failed or was stopped is a message as others are: `follow` knows every end. A
        later call for the same job ends the iteration of an earlier one."""

        def callbacks(put: Callable[[Any], None], end: Callable[[], None]) -> tuple[Any, ...]:
            def on_finished(error: bytes, _: bytes, message: bytes) -> None:
                end()
                try:
                    self._worker.succeeded(error)
                    put(text(message))
                    put(END)
                except VelmoraError as raised:
                    put(raised)

            return MESSAGE(lambda _, job, message: put(text(message))), MESSAGE(on_finished)

        return self._stream("subscribeToJob_Json", (job_id.encode(),), callbacks,
                            lambda: self._library.unsubscribeFromJob(self._worker.handle, job_id.encode()))

    # Tags

    async def tags(self, job_id: str) -> list[ItemTag]:
        """The tags of a job."""
        return await self._call("getJobTags_Json", job_id, read=ItemTag.list_from_json)

    async def tag(self, job_id: str, tag: str) -> list[ItemTag]:
        """Adds a tag to a job. Returns the job's tags after that."""
        return await self._call("tagJob_Json", job_id, tag, read=ItemTag.list_from_json)

    async def untag(self, job_id: str, tag: str) -> list[ItemTag]:
        """Removes a tag from a job. Returns the job's tags after that."""
        return await self._call("untagJob_Json", job_id, tag, read=ItemTag.list_from_json)

    async def account_tags(self, account_id: str) -> list[ItemTag]:
        """The tags that are in use within an account."""
        return await self._call("getAllAccountTags_Json", account_id, read=ItemTag.list_from_json)

    async def tagged_jobs(self, *tags: str) -> list[JobDetails]:
        """The user's jobs that carry the tags."""
        listed = json.dumps([json.dumps({"tagText": tag}) for tag in tags])
        return await self._call("searchUserTags_Json", listed, read=JobDetails.list_from_json)

    # Files. They are encrypted before they leave this machine, and decrypted after they have arrived. `hidden`: also
    # the files whose name has the folder "/rtg/" in it.

    async def files(self, job_id: str, *, hidden: bool = False) -> list[CloudFile]:
        """The files of a job, including those of its simulations."""
        return await self._call("getJobFileList_Json", job_id, hidden, read=CloudFile.list_from_json)

    async def simulation_files(self, job_id: str, simulation_id: str, *, hidden: bool = False) -> list[CloudFile]:
        """The files of one simulation."""
        return await self._call("getSimulationFileList_Json", job_id, simulation_id, hidden,
                                read=CloudFile.list_from_json)

    async def all_files(self, *, hidden: bool = False) -> list[CloudFile]:
        """The files of all of the user's jobs."""
        return await self._call("getUsersFileList_Json", hidden, read=CloudFile.list_from_json)

    async def delete_file(self, file: CloudFile) -> None:
        """Deletes a file in the cloud: the one that is named, as it is listed, or none."""
        named = json.dumps({"jobId": file.job_id, "fileName": file.file_name})
        await self._call("deleteFile_Json", named, read=lambda _: None)

    async def upload(self, path: str | os.PathLike[str], job_id: str,
                     on_progress: OnProgress = None) -> FileUploadDetails:
        """Sends a file into a job.

        on_progress: receives the bytes sent so far, of the encrypted file and the form fields around it
        """
        file = json.dumps({"localFileLocation": os.path.abspath(path), "cloudFileJobID": job_id})
        return await self._transfer("uploadFile_Json", "cancelUpload_Json", file, FileUploadDetails.from_json,
                                    on_progress)

    async def download(self, file: CloudFile, target: str | os.PathLike[str],
                       on_progress: OnProgress = None) -> pathlib.Path:
        """Fetches a file that `files` lists. An older target is replaced when all has arrived, else it stays.

        target: the file to write; or a folder, where the file gets its name in the cloud, with the folders in that. A
            name that leads out of the folder raises ValueError.
        on_progress: receives the encrypted bytes received so far; those of the whole file are `file.file_size`
        Returns the file that was written.
        """
        path = pathlib.Path(os.path.abspath(target))
        if path.is_dir():
            path /= _safe(file.file_name)
            path.parent.mkdir(parents=True, exist_ok=True)
        wanted = json.dumps({"localFileLocation": str(path), "cloudFileDetails": json.loads(file.to_json())})
        await self._transfer("downloadFile_Json", "cancelDownload_Json", wanted, lambda _: None, on_progress)
        return path

    async def _transfer(self, name: str, cancel: str, file: str, read: Callable[[str], T],
                        on_progress: OnProgress) -> T:
        loop, count = asyncio.get_running_loop(), ByteCount()

        def progressed(_: bytes, low: int) -> None:
            if on_progress is not None:
                _soon(loop, on_progress, count.passed(low))

        transfer = self._worker.start(name, file.encode(), read=lambda result: read(text(result)),
                                      before=(PROGRESS(progressed),))
        try:
            return await asyncio.wrap_future(transfer)
        except asyncio.CancelledError:
            if not transfer.cancelled():  # it has begun
                self._worker.post_if_open(lambda: getattr(self._library, cancel)(self._worker.handle, file.encode()))
            raise

    async def _call(self, name: str, *arguments: str | bool, read: Callable[..., T], kind: Any = RESULT) -> T:
        passed = [ctypes.c_bool(each) if isinstance(each, bool) else each.encode() for each in arguments]
        return await asyncio.wrap_future(self._worker.start(
            name, *passed, kind=kind, read=lambda value: read(text(value) if isinstance(value, bytes) else value)))

    def _done(self, call: Callable[[], T]) -> Awaitable[T]:
        return asyncio.wrap_future(self._worker.ask(call))

    async def _stream(self, name: str, arguments: tuple[bytes, ...], callbacks: Any,
                      stop: Callable[[], object]) -> AsyncGenerator[Any, None]:
        """What the callbacks put, until END, or an exception, which is raised."""
        loop, items, key = asyncio.get_running_loop(), asyncio.Queue[Any](), (name, *arguments)
        worker = self._worker

        def put(item: Any) -> None:
            _soon(loop, items.put_nowait, item)

        operation = Operation(callbacks(put, lambda: worker.end(key)), put)
        worker.post(lambda: worker.begin(key, name, arguments, operation))
        try:
            while (item := await items.get()) is not END:
                if isinstance(item, Exception):
                    raise item
                yield item
        finally:
            worker.withdraw(key, operation, stop)


class ByteCount:
    """A count that never goes back, of which only the low 32 bits are passed."""

    def __init__(self) -> None:
        self._total = 0

    def passed(self, low: int) -> int:
        self._total += (low - self._total) & 0xFFFFFFFF
        return self._total


def _soon(loop: asyncio.AbstractEventLoop, call: Callable[[T], object], argument: T) -> None:
    with contextlib.suppress(RuntimeError):  # the loop is closed
        loop.call_soon_threadsafe(call, argument)


def _refresh_token(outcome: dict[str, Any]) -> str:
    try:
        return str(json.loads(outcome["errorMessage"]).get("refreshToken", ""))
    except ValueError:
        return ""


def _safe(name: str) -> str:
    if any(character in name for character in "\\:\0") or any(part in ("", ".", "..") for part in name.split("/")):
        raise ValueError(f"not a name for a file below a folder: {name!r}")
    return name
