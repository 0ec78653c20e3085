"""Takes a job from its input to its results: sign in, upload, submit, follow, download.

    VELMORA_USER=… VELMORA_PASSWORD=… python3 main.py INPUT RESULT_FOLDER [ACCOUNT]

It needs the package of python/. VELMORA_CA names a file of certificate authorities to trust as well. The exit status is
0 when the job finished and its results are there.
"""

import asyncio
import os
import sys

import velmora


async def run(source: str, folder: str, account: str = "ACC-1001") -> None:
    async with velmora.Session(ca_file=os.environ.get("VELMORA_CA", "")) as session:
        await session.sign_in(os.environ["VELMORA_USER"], os.environ["VELMORA_PASSWORD"],
                              os.environ.get("VELMORA_MFA", ""))
        job_id = await session.new_job_id(account)
        await session.upload(source, job_id, lambda sent: print(f"{sent} bytes sent"))
        await session.submit(velmora.JobSubmit(
            job_id=job_id, account_id=account, job_name="Beam from Python", main_file=os.path.basename(source),
            cores_required=4, ram_estimate=1024, core_hour_estimate=0.5, simulations=["-x 1"],
            origin_application="python_host"))
        async for progress in session.follow(job_id):
            print(progress)
        os.makedirs(folder, exist_ok=True)  # without it each file would be written to that name
        for file in await session.files(job_id):
            if "/" in file.file_name:  # a simulation's, not an input
                print(await session.download(file, folder))


if __name__ == "__main__":
    try:
        asyncio.run(run(*sys.argv[1:]))
    except velmora.VelmoraError as error:
        sys.exit(str(error))
