"""Takes a job from its input to its results: sign in, upload, submit, follow, download.

    VELMORA_USER=… VELMORA_PASSWORD=… python3 main.py INPUT RESULT_FOLDER [ACCOUNT]

VELMORA_LIBRARY names the library where the dynamic linker does not find it, VELMORA_CA a file of certificate authorities
to trust as well. The exit status is 0 when the job
finished and its results are there.
"""

import os
import sys

from velmora import Failure, Session


def run(source, folder, account="ACC-1001"):
    with Session() as session:
        session.sign_in(os.environ["VELMORA_USER"], os.environ["VELMORA_PASSWORD"], os.environ.get("VELMORA_MFA", ""))
        job = session.new_job_id(account)
        session.upload(source, job, lambda sent: print(f"{sent} bytes sent"))
        session.submit({
            "jobID": job,
            "accountID": account,
            "jobName": "Beam from Python",
            "mainFile": os.path.basename(source),
            "solverTag": " ",
            "operation": 0,
            "numberOfParts": 4,
            "ramEstimate": 1024,
            "coreHourEstimate": 0.5,
            "simulations": ["-x 1"],
            "originApplication": "python_host",
        })
        session.follow(job, print)
        for file in session.files(job):
            if "/" in file["fileName"]:  # a simulation's, not an input
                target = os.path.join(folder, file["fileName"].replace("/", "-"))
                session.download(job, file["fileName"], target)
                print(f"{target}: {os.path.getsize(target)} bytes")


if __name__ == "__main__":
    try:
        run(*sys.argv[1:])
    except Failure as failure:
        sys.exit(f"{failure}")
