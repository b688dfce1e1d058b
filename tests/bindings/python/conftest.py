pytest_plugins = ['yorvanusb.pytest_plugin']
