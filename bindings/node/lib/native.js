// The addon: one file for each platform, made from src/ by `npm run build` where there is none.
'use strict';

const platform = `${process.platform}-${process.arch}`;

function load() {
  try {
    return require(`../prebuilt/${platform}/velmora.node`);
  } catch (error) {
    throw new Error(`velmora has no addon for ${platform} that works here (${error.message}). `
      + 'It is built from the sources in the package by "npm run build" in '
      + `${require('node:path').dirname(__dirname)}, which needs cmake, a C++20 compiler `
      + "and Node's headers", { cause: error });
  }
}

module.exports = load();
