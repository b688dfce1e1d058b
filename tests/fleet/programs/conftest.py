import pytest
from lab import Bus, Lab


@pytest.fixture
def lab(tmp_path):
    made = Lab(tmp_path)
    yield made
    made.close()


@pytest.fixture
def bus():
    return Bus()
