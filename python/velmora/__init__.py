"""Client of the Velmora cloud simulation service: sign in, submit jobs, follow them, move their files.

    async with velmora.Session() as session:
        await session.sign_in(email, password)
        async for progress in session.follow(job_id):
            print(progress)
"""

from . import records
from .errors import JobEnded, SessionClosed, VelmoraError
from .records import *
from .session import Session, latest_status, version

__all__ = ["JobEnded", "Session", "SessionClosed", "VelmoraError", "latest_status", "version"]
__all__ += records.__all__
