"""A private XMPP server for a test: quor-cs-server with the given accounts (name:password),
stopped and removed when the block ends. Shared by the binding's and the console's tests."""
import contextlib
import os
import subprocess

import pytest


def program(name):
    path = os.environ.get(name)
    if not path:
        pytest.fail(name + " is not set (the test command sets it)")
    return path


@contextlib.contextmanager
def private_server(accounts, file_share=0):
    """`file_share`: an HTTP upload service taking files up to that many bytes (0: none)."""
    arguments = [program("QUOR_CS_SERVER_PROGRAM")]
    for account in accounts:
        arguments += ["--account", account]
    if file_share:
        arguments += ["--file-share", str(file_share)]
    server = subprocess.Popen(arguments, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    try:
        line = server.stdout.readline()
        assert line.startswith("quor-cs-server: port "), line
        yield int(line.split()[2])
    finally:
        server.stdin.close()  # the server stops and removes its directory
        server.wait(timeout=30)
