"""Builds the wheel (PEP 517). It needs only Python, so that pip needs no network."""
import base64
import hashlib
import os
import re
import zipfile

HERE = os.path.dirname(os.path.abspath(__file__))
PACKAGE = 'yorvanusb'


def _project(field):
    with open(os.path.join(HERE, 'pyproject.toml'), encoding='utf-8') as file:
        return re.search(rf'^{field} = "(.*)"$', file.read(), re.M).group(1)


def _dist_info():
    return f'{PACKAGE}-{_project("version")}.dist-info'


def _metadata():
    """Returns the files of the .dist-info folder except RECORD, by name."""
    return {
        'METADATA': f'Metadata-Version: 2.1\nName: {PACKAGE}\nVersion: {_project("version")}\n'
                    f'Summary: {_project("description")}\nRequires-Python: {_project("requires-python")}\n',
        'WHEEL': 'Wheel-Version: 1.0\nGenerator: yorvanusb\nRoot-Is-Purelib: true\nTag: py3-none-any\n',
        'entry_points.txt': '[pytest11]\nyorvanusb = yorvanusb.pytest_plugin\n',
    }


def prepare_metadata_for_build_wheel(metadata_directory, config_settings=None):
    folder = os.path.join(metadata_directory, _dist_info())
    os.makedirs(folder, exist_ok=True)
    for name, text in _metadata().items():
        with open(os.path.join(folder, name), 'w', encoding='utf-8') as file:
            file.write(text)
    return _dist_info()


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    contents = {}
    for name in sorted(os.listdir(os.path.join(HERE, PACKAGE))):
        if name.endswith(('.py', '.typed')):
            with open(os.path.join(HERE, PACKAGE, name), 'rb') as file:
                contents[f'{PACKAGE}/{name}'] = file.read()
    for name, text in _metadata().items():
        contents[f'{_dist_info()}/{name}'] = text.encode()

    record = ''
    wheel = f'{PACKAGE}-{_project("version")}-py3-none-any.whl'
    with zipfile.ZipFile(os.path.join(wheel_directory, wheel), 'w', zipfile.ZIP_DEFLATED) as archive:
        for path, content in contents.items():
            digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).decode().rstrip('=')
            record += f'{path},sha256={digest},{len(content)}\n'
            archive.writestr(path, content)
        archive.writestr(f'{_dist_info()}/RECORD', f'{record}{_dist_info()}/RECORD,,\n')
    return wheel


def build_sdist(sdist_directory, config_settings=None):
    raise NotImplementedError('the source is the whole repository')
