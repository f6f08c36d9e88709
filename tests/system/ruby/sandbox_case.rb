# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# What the Ruby suites share: a run's fixed status paths, a folder of its
# own, tmpfs mounts taken down again, and the check that whatever a test
# provoked, the log and the error file speak a user's words.
require "test/unit"
require "tmpdir"
require "fileutils"
require "etc"

module SandboxCase
  FLAG = "/tmp/ov_Daily.run"
  PROGRESS = "/tmp/ov_Daily.progress"
  ERRORS = "/var/log/.orvane_daily.err"
  # What a user must never read: the implementation's own words.
  IMPLEMENTATION_WORDS = /rb_sysopen|Errno|#<|NoMethodError|NilClass|\.rb:\d+/

  def self.user(name, *groups)
    system("useradd", "-m", *(groups.empty? ? [] : ["-G", groups.join(",")]), name, out: File::NULL, err: File::NULL) unless (Etc.getpwnam(name) rescue nil)
    Etc.getpwnam(name)
  end

  def setup
    raise "runs only inside tests/sandbox/ov-sandbox" unless ENV["OV_IN_SANDBOX"]
    @dir = Dir.mktmpdir("ov-test").b
    File.chmod(0o755, @dir)
    @mounts = []
    FileUtils.rm_rf([FLAG, PROGRESS, ERRORS])
  end

  def teardown
    [log_file, ERRORS, "/var/log/orvane_daily.log"].each do |file|
      text = File.exist?(file) ? File.binread(file) : ""
      assert_no_match(IMPLEMENTATION_WORDS, text, "#{file} shows the implementation's words")
    end
    @mounts.reverse_each { |m| system("umount", "-q", m) }
    FileUtils.rm_rf(@dir)
  end

  def log_file = File.join(@dir, "daily.log")
  def errors = File.exist?(ERRORS) ? File.binread(ERRORS) : ""
  def log_text = File.exist?(log_file) ? File.binread(log_file) : ""

  def mount_tmpfs(point, size: "16m", name: "ov-test")
    FileUtils.mkdir_p(point)
    assert(system("mount", "-t", "tmpfs", "-o", "size=#{size}", name, point), "mount #{point}")
    @mounts << point
  end

  def unmount(point)
    assert(system("umount", point))
    @mounts.delete(point)
  end

  def files(folder) = Dir.glob("**/*", File::FNM_DOTMATCH, base: folder).reject { |p| p.end_with?(".") || File.directory?(File.join(folder, p)) }.sort
end
