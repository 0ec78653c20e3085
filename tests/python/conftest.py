"""The local portal that the tests use: --portal names its program. Tests that are coroutines have a deadline."""

import asyncio
import inspect
import json
import os
import ssl
import subprocess
import urllib.request
from typing import Any, Iterator

import pytest
import velmora

SECONDS = 20


class Portal:
    def __init__(self, facts: dict[str, Any]) -> None:
        self.host, self.ca = facts["host"], facts["ca"]
        self.email, self.password = facts["users"][0]["email"], facts["users"][0]["password"]

    def control(self, what: str, **values: object) -> Any:
        """Without values: DELETE."""
        body = json.dumps(values).encode() if values else None
        request = urllib.request.Request(f"https://{self.host}/control/{what}", body, method=None if body else "DELETE")
        with urllib.request.urlopen(request, context=ssl.create_default_context(cafile=self.ca)) as answer:
            return json.load(answer)

    async def signed_in(self) -> velmora.Session:
        session = velmora.Session(ca_file=self.ca)
        await session.sign_in(self.email, self.password)
        return session


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--portal", required=True)


@pytest.fixture(scope="session", name="portal")
def running_portal(request: pytest.FixtureRequest) -> Iterator[Portal]:
    with subprocess.Popen([request.config.getoption("--portal")], text=True, stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as process:
        assert process.stdout and process.stdin
        portal = Portal(json.loads(process.stdout.readline()))
        os.environ["VELMORA_API_URL"] = portal.host
        yield portal
        process.stdin.close()  # which stops it


def pytest_pyfunc_call(pyfuncitem: pytest.Function) -> bool | None:
    if not inspect.iscoroutinefunction(pyfuncitem.obj):
        return None  # anything else would count as a test that has run
    arguments = {name: pyfuncitem.funcargs[name] for name in inspect.signature(pyfuncitem.obj).parameters}
    asyncio.run(asyncio.wait_for(pyfuncitem.obj(**arguments), SECONDS))
    return True
