"""The local portal that the tests use: --portal names its program."""

import json
import os
import ssl
import subprocess
import urllib.request
from typing import Any, Iterator

import pytest
import velmora


class Portal:
    def __init__(self, facts: dict[str, Any]) -> None:
        self.host, self.ca = facts["host"], facts["ca"]
        self.email, self.password = facts["users"][0]["email"], facts["users"][0]["password"]

    def session(self, **settings: Any) -> velmora.Session:
        return velmora.Session(**{"ca_file": self.ca, **settings})

    async def sign_in(self, session: velmora.Session) -> str:
        return await session.sign_in(self.email, self.password)

    def control(self, what: str, **values: object) -> Any:
        """Without values: DELETE."""
        request = urllib.request.Request(f"https://{self.host}/control/{what}", json.dumps(values).encode() if values
                                         else None, method="POST" if values else "DELETE")
        with urllib.request.urlopen(request, context=ssl.create_default_context(cafile=self.ca)) as answer:
            return json.load(answer)


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--portal", required=True)


@pytest.fixture(scope="session", name="portal")
def running_portal(request: pytest.FixtureRequest) -> Iterator[Portal]:
    command = [request.config.getoption("--portal")]
    with subprocess.Popen(command, text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL) as process:
        assert process.stdout and process.stdin
        portal = Portal(json.loads(process.stdout.readline()))
        os.environ["VELMORA_API_URL"] = portal.host
        yield portal
        process.stdin.close()  # which stops it
