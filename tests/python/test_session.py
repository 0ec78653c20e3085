"""The installed package against the local portal."""

import ast
import asyncio
import importlib.metadata
import os
import pathlib
import re
import runpy
import subprocess
import sys
from typing import Any, AsyncIterator, Awaitable, Callable

import pytest
import velmora
from velmora import JobSubmit, SessionChange, VelmoraError
from velmora.session import ByteCount

ROOT = pathlib.Path(__file__).resolve().parents[2]


async def submitted(portal: Any, session: velmora.Session, source: pathlib.Path | None = None,
                    milliseconds: int = 600_000) -> str:
    portal.control("jobs", duration=milliseconds)
    job_id = await session.new_job_id("ACC-1001", "hpc-eu-1")
    if source:
        await session.upload(source, job_id)
    job = await session.submit(JobSubmit(
        job_id=job_id, account_id="ACC-1001", job_name="Beam", main_file="beam.trninp", cores_required=4,
        core_hour_estimate=0.5, ram_estimate=1024, simulations=["-x 1"], origin_application="test"))
    assert (job.job_id, job.number_of_parts, job.simulations[0].console_parameters) == (job_id, 4, "-x 1")
    return job_id


async def collect(items: AsyncIterator[Any]) -> list[Any]:
    return [each async for each in items]


def test_records_areThoseOfTheHeaders() -> None:
    generate = runpy.run_path(str(ROOT / "python/generate.py"))
    made = generate["TARGET"].read_text(encoding="utf-8")
    assert made == generate["generate"](), "the headers have changed: run python3 python/generate.py"


def test_everyFunctionOfTheHeader_isCalled() -> None:
    package = pathlib.Path(velmora.__file__).parent
    code = "".join(file.read_text(encoding="utf-8") for file in package.glob("*.py"))
    header = (ROOT / "include/velmora/CloudAPIFlat.h").read_text(encoding="utf-8")
    exported = set(re.findall(r"VELMORA_EXPORT [^(]*?(\w+)\(", header))
    twins = {name.removesuffix("_Json") for name in exported if name.endswith("_Json")}
    unneeded = {"processEvents", "setUserData", "userData", "currentCloudAPI",  # a handle has one thread of its own
                "uploadInputFile_Json"}  # blocks that thread; `upload` waits without
    called = {name for name in exported if re.search(rf"\b{name}\b", code)}
    assert exported - twins - called == unneeded


def test_metadata_hasTheVersionOfTheLibrary_andNoLicence() -> None:
    metadata = importlib.metadata.metadata("velmora")
    assert metadata["Version"] == velmora.version()
    assert {"License", "Home-page", "Author", "Project-URL"}.isdisjoint(metadata)


WING, DUCT = "job-wing0001", "job-duct0002"
RESULTS: list[tuple[Callable[[velmora.Session], Awaitable[Any]], Callable[[Any], object], object]] = [
    (lambda s: s.needs_code("ben.stone@velmora.example"), bool, True),
    (lambda s: s.is_signed_in(), bool, True),
    (lambda s: s.network_is_up(), bool, True),
    (lambda s: s.apply_proxy(velmora.ProxyDefinition(proxy_type=7)), type, type(None)),
    (lambda s: s.user(), lambda user: user.user_email, "ada.field@velmora.example"),
    (lambda s: s.modify_user(surname="Field", forename="Ada", company_name="Ädas & Co"),
     lambda user: (user.surname, user.forename, user.company_name), ("Field", "Ada", "Ädas & Co")),
    (lambda s: s.accounts(), lambda all: (all[0].account_access.account_admin, all[0].account_access.has_mfa),
     (True, False)),
    (lambda s: s.balance("ACC-1001"), lambda balance: type(balance.recent_transactions[0].transaction_amount), float),
    (lambda s: s.clusters("ACC-1001"), lambda all: [each.hpc_id for each in all if not each.hpc_active], ["hpc-lab-1"]),
    (lambda s: s.preferred_clusters("ACC-1001"), lambda all: type(all[0]), velmora.HpcDetails),
    (lambda s: s.send_event("click", "test", "1"), type, type(None)),
    (lambda s: s.job(WING), lambda job: [velmora.latest_status(each) for each in (job, *job.simulations)],
     ["FINISHED", "FINISHED"]),
    (lambda s: s.jobs(), lambda all: {WING, DUCT} - {each.job_id for each in all}, set()),
    (lambda s: s.progress(WING), lambda job: job.simulation_progress_list[0].progress, 100),
    (lambda s: s.wait(WING), lambda job: job.job_id, WING),
    (lambda s: s.tag(WING, "fast"), lambda tags: "fast" in [each.tag_text for each in tags], True),
    (lambda s: s.tags(WING), lambda tags: "fast" in [each.tag_text for each in tags], True),
    (lambda s: s.account_tags("ACC-1001"), lambda tags: "fast" in [each.tag_text for each in tags], True),
    (lambda s: s.tagged_jobs("wing", "fast"), lambda all: [each.job_id for each in all], [WING]),
    (lambda s: s.untag(WING, "fast"), lambda tags: "fast" in [each.tag_text for each in tags], False),
    (lambda s: s.files(WING), len, 3),
    (lambda s: s.files(WING, hidden=True), len, 4),
    (lambda s: s.simulation_files(WING, "sim-1"), lambda all: all[0].directory, False),
    (lambda s: s.all_files(), lambda all: type(all[0].file_size), int),
    (lambda s: s.archive(DUCT), lambda all: type(all[0]), velmora.JobDetails),
]


async def test_operations_haveTheirResults(portal: Any) -> None:
    async with await portal.signed_in() as session:
        found = [read(await call(session)) for call, read, _ in RESULTS]
        assert found == [expected for _, _, expected in RESULTS]


FAILURES: list[tuple[Callable[[velmora.Session], Awaitable[Any]], int, str]] = [
    (lambda s: s.job("none"), 404, 'Error Requesting Job Information: There is no job "none" (404)'),
    (lambda s: s.submit(JobSubmit(cores_required=999)), 400, "Currently a MAXIMUM of 128"),
    (lambda s: s.upload("/none", WING), 400, "/none"),
    (lambda s: s.delete_file(velmora.CloudFile(job_id=WING, file_name="../x")), 400, ".."),
    (lambda s: s.resume("wrong"), 401, "(401)"),
]


async def test_failures_haveCodeTitleAndMessage(portal: Any) -> None:
    async with await portal.signed_in() as session:
        for call, code, part in FAILURES:
            with pytest.raises(VelmoraError, match=re.escape(part)) as raised:
                await call(session)
            assert (raised.value.code, raised.value.__context__) == (code, None)
        with pytest.raises(ValueError, match="../x"):
            await session.download(velmora.CloudFile(job_id=WING, file_name="../x"), "/")
    async with velmora.Session() as session:
        with pytest.raises(VelmoraError, match="certificate") as raised:
            await session.user()
        assert (raised.value.code, raised.value.title) == (0, "")


async def test_job_inALoopThatRuns_comesBackWithItsInput(portal: Any, tmp_path: pathlib.Path) -> None:
    """As a notebook does it: statements with await at the top level, in a loop that goes on between them."""
    source = tmp_path / "beam.trninp"
    source.write_text("beam " * 500_000)
    counts: list[int] = []
    cells: dict[str, Any] = {"submitted": submitted, "portal": portal, "source": source, "to": tmp_path,
                             "received": counts.append}
    for cell in ("session = await portal.signed_in()", "job_id = await submitted(portal, session, source, 1500)",
                 "updates = [each async for each in session.follow(job_id)]",
                 "(file,) = [each for each in await session.files(job_id) if 'results' in each.file_name]",
                 "path = await session.download(file, to, received)", "await session.close()"):
        await eval(compile(cell, "cell", "exec", ast.PyCF_ALLOW_TOP_LEVEL_AWAIT), cells)
    assert cells["updates"][0].simulation_progress_list[0].simulation_id == "sim-1"
    path = tmp_path / "sim-1" / "results.dat"
    assert cells["path"] == path and path.read_text().split("\n", 1)[1] == source.read_text()
    assert counts == sorted(counts) and counts[-1] >= 2_500_000


async def test_iterations_endAsTheJobDoes_orWhenTheyAreLeft(portal: Any) -> None:
    async with await portal.signed_in() as session:
        finished = await submitted(portal, session, milliseconds=500)
        assert "Job status is FINISHED" in (await collect(session.messages(finished)))[-1]
        job_id = await submitted(portal, session)
        for items in (session.follow(job_id), session.messages(job_id)):
            async for _ in items:
                break
            await items.aclose()
            while portal.control("sockets", action="send", jobId=job_id, text="x")["sockets"]:
                await session.user()
        first, second = (asyncio.create_task(session.wait(job_id)) for _ in range(2))
        with pytest.raises(VelmoraError, match="ends the earlier"):
            await first
        assert "STOPPED" in (await session.stop_simulation(await submitted(portal, session), "sim-1")).status
        assert (await session.stop(job_id))[0].job_id == job_id
        with pytest.raises(velmora.JobEnded, match="Job Stopped") as ended:
            await second
        assert ended.value.job.job_id == job_id


async def test_signOut_endsIterations_andResumeSignsInAgain(portal: Any) -> None:
    async with velmora.Session(ca_file=portal.ca) as session:
        token = await session.sign_in(portal.email, portal.password)
        changes = session.changes()
        first = asyncio.ensure_future(anext(changes))
        job_id = await submitted(portal, session)
        iterations = session.follow(job_id), session.messages(job_id)
        open_ends = [asyncio.create_task(collect(each)) for each in iterations]
        await session.user()  # both have begun
        await session.sign_out()
        for task in open_ends:
            with pytest.raises(VelmoraError) as raised:
                await task
            assert raised.value.code == 400
        assert await first == SessionChange.SIGNED_OUT
        second = asyncio.ensure_future(anext(changes))
        assert await session.resume(token) and await second == SessionChange.SIGNED_IN and await session.is_signed_in()


async def test_cancelledDownload_endsInTheLibrary(portal: Any, tmp_path: pathlib.Path) -> None:
    async with await portal.signed_in() as session:
        file = (await session.files(WING))[0]
        portal.control("faults", kind="silence", path="storage/piece")
        download = asyncio.create_task(session.download(file, tmp_path / "x"))
        await session.user()
        download.cancel()
        with pytest.raises(asyncio.CancelledError):
            await download
        portal.control("faults")
        await session.download(file, tmp_path / "x")  # a second one to the same file would be refused


async def test_close_failsWhatIsUnderWay_ofThisSessionAlone(portal: Any) -> None:
    async with await portal.signed_in() as session, await portal.signed_in() as other:
        portal.control("faults", kind="silence", path="job/list")
        jobs = asyncio.create_task(session.jobs())
        await session.user()
        await session.close()
        portal.control("faults")
        for late in (jobs, session.user()):
            with pytest.raises(velmora.SessionClosed):
                await late
        assert await other.user()


def test_sessionThatNobodyCloses_leavesTheProgramEnd() -> None:
    subprocess.run([sys.executable, "-c", "import velmora; session = velmora.Session()"], check=True, timeout=20)


def test_firstProgramOfTheReadme_listsTheJobs(portal: Any) -> None:
    (program, _) = re.findall("```python\n(.*?)```", (ROOT / "python/README.md").read_text(encoding="utf-8"), re.S)
    settings = {"VELMORA_CA": portal.ca, "VELMORA_USER": portal.email, "VELMORA_PASSWORD": portal.password}
    done = subprocess.run([sys.executable, "-c", program], env={**os.environ, **settings}, timeout=20, check=True,
                          text=True, capture_output=True)
    assert "job-wing0001 Wing-091500-120324 FINISHED" in done.stdout and not done.stderr


def test_byteCount_beyondTheLow32Bits_goesOn() -> None:
    count = ByteCount()
    counts = [5, 2**31 - 1, 2**31, 2**32 - 1, 2**32, 2**32 + 7]
    assert [count.passed(low) for low in (5, 2**31 - 1, -2**31, -1, 0, 7)] == counts
