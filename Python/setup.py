"""Builds the extension with CMake, for the interpreter that runs this; all else is in pyproject.toml."""

import pathlib
import subprocess
import sysconfig

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext


class CMakeBuild(build_ext):
    def build_extension(self, extension):
        root = pathlib.Path(__file__).resolve().parent.parent
        made = pathlib.Path(self.build_temp).resolve()
        suffix = sysconfig.get_config_var("EXT_SUFFIX")
        subprocess.run(["cmake", "-S", root, "-B", made, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DQUILLMARK_TESTS=OFF",
                        "-DQUILLMARK_DESKTOP=OFF", "-DQUILLMARK_PYTHON=ON", f"-DQUILLMARK_PYTHON_SUFFIX={suffix}",
                        f"-DQUILLMARK_PYTHON_INCLUDE={sysconfig.get_path('include')}"], check=True)
        subprocess.run(["cmake", "--build", made, "--target", "quillmark_python"], check=True)
        target = pathlib.Path(self.get_ext_fullpath(extension.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        self.copy_file(str(made / "python/quillmark" / f"_kit{suffix}"), str(target))


setup(ext_modules=[Extension("quillmark._kit", [])], cmdclass={"build_ext": CMakeBuild})
