"""What the packaging tests share."""

import pytest

from desk import SOURCE


@pytest.fixture(scope="session")
def source():
    return SOURCE
