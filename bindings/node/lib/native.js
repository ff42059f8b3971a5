// The addon: one file for each platform, made from src/ by `npm run build` where there is none.
'use strict';

const path = require('node:path');

const platform = `${process.platform}-${process.arch}`;

function load() {
  try {
    return require(`../prebuilt/${platform}/velmora.node`);
  } catch (error) {
    const [reason] = error.message.split('\n');
    throw new Error(`velmora has no addon that works on this ${platform} (${reason}). It is built `
      + `from the sources in the package: run "npm run build" in ${path.dirname(__dirname)}, with `
      + "cmake, a C++20 compiler and Node's headers", { cause: error });
  }
}

module.exports = load();
